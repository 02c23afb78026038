// The page's view of the plug-in (extension/plugin-shim.js) on a stand-in for the page's world: the
// browser's own plug-in lists, and the navigation entry that carries what the host reported.
import assert from 'node:assert';
import { readFileSync } from 'node:fs';
import test from 'node:test';
import vm from 'node:vm';

const TYPE = 'application/x-orvane-sslvpn';
const reported = {
  name: 'Orvane Passway plugin', description: 'Orvane Passway plugin, Ver. 7135.2016.429.1',
  filename: 'libtunvo_plugin.so', mimeTypes: [{ type: TYPE, suffixes: 'xvpn', description: 'Orvane Passway plugin' }],
};

// A page whose response carried these Server-Timing entries, with one plug-in of the browser's own.
function page(timings) {
  class Plugin {}
  class MimeType {}
  class PluginArray {}
  class MimeTypeArray {}
  const pdf = Object.assign(new Plugin(), { name: 'PDF Viewer' });
  const pdfType = Object.assign(new MimeType(), { type: 'application/pdf', enabledPlugin: pdf });
  const world = vm.createContext({
    Plugin, MimeType, PluginArray, MimeTypeArray,
    navigator: { plugins: [pdf], mimeTypes: [pdfType] },
    performance: { getEntriesByType: (kind) => (kind === 'navigation' ? [{ serverTiming: timings }] : []) },
  });
  vm.runInContext(readFileSync(new URL('../../extension/plugin-shim.js', import.meta.url), 'utf8'), world);
  return world;
}

const entry = (value) => ({ name: 'passway-plugin', description: encodeURIComponent(JSON.stringify(value)) });

test('the page finds the plug-in by its MIME type and its name, beside the browser\'s own', () => {
  const { navigator, Plugin, MimeType, PluginArray } = page([{ name: 'db', description: '' }, entry(reported)]);
  const mimeType = navigator.mimeTypes[TYPE];
  assert.ok(mimeType instanceof MimeType);
  assert.deepStrictEqual([mimeType.type, mimeType.suffixes, mimeType.description],
                         [TYPE, 'xvpn', 'Orvane Passway plugin']);
  const plugin = mimeType.enabledPlugin;
  assert.ok(plugin instanceof Plugin);
  assert.deepStrictEqual([plugin.name, plugin.description, plugin.filename, plugin.length],
                         [reported.name, reported.description, reported.filename, 1]);
  assert.strictEqual(plugin[0], mimeType);
  assert.strictEqual(plugin[TYPE], mimeType);
  assert.strictEqual(plugin.namedItem(TYPE), mimeType);
  assert.ok(navigator.plugins instanceof PluginArray);
  assert.strictEqual(navigator.plugins.length, 2);
  assert.strictEqual(navigator.plugins['Orvane Passway plugin'], plugin);
  assert.strictEqual(navigator.plugins.namedItem('Orvane Passway plugin'), plugin);
  assert.strictEqual(navigator.plugins.item(1), plugin);
  assert.deepStrictEqual([...navigator.plugins].map((p) => p.name), ['PDF Viewer', reported.name]);
  assert.deepStrictEqual(Object.keys(navigator.mimeTypes), ['0', '1'], 'names are not enumerated');
  assert.strictEqual(navigator.mimeTypes.namedItem('application/pdf').type, 'application/pdf');
  assert.ok(TYPE in navigator.mimeTypes);
});

test('without the host\'s entry, or with one that is not the host\'s, the page sees nothing of the plug-in', () => {
  const rows = [
    ['no entry', []],
    ['another name', [{ name: 'passway', description: entry(reported).description }]],
    ['not JSON', [{ name: 'passway-plugin', description: '%7Bname' }]],
    ['no MIME types', [entry({ name: 'x' })]],
    ['not an object', [entry(5)]],
  ];
  for (const [name, timings] of rows) {
    const { navigator } = page(timings);
    assert.strictEqual(navigator.mimeTypes[TYPE], undefined, name);
    assert.strictEqual(navigator.plugins.length, 1, name);
  }
});
