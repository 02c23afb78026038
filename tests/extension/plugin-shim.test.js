// The page's view of the plug-in (extension/plugin-shim.js) on a stand-in for the page's world: the
// browser's own plug-in lists, and the navigation entry that carries what the host reported.
import assert from 'node:assert';
import test from 'node:test';
import { contentScript } from './fake-dom.js';

const TYPE = 'application/x-orvane-sslvpn';
const NAME = 'Orvane Passway plugin';
const PLUGIN = { name: NAME, description: `${NAME}, Ver. 7135.2016.429.1`, filename: 'libtunvo_plugin.so' };
const MIME_TYPE = { type: TYPE, suffixes: 'xvpn', description: NAME };
const entry = (value = { ...PLUGIN, mimeTypes: [MIME_TYPE] }) =>
  ({ name: 'passway-plugin', description: encodeURIComponent(JSON.stringify(value)) });

// A page whose response carried these Server-Timing entries, with one plug-in of the browser's own.
function page(timings) {
  const classes = { Plugin: class {}, MimeType: class {}, PluginArray: class {}, MimeTypeArray: class {} };
  const pdf = Object.assign(new classes.Plugin(), { name: 'PDF Viewer' });
  const pdfType = Object.assign(new classes.MimeType(), { type: 'application/pdf', enabledPlugin: pdf });
  return contentScript('plugin-shim.js', { ...classes, navigator: { plugins: [pdf], mimeTypes: [pdfType] },
    performance: { getEntriesByType: (kind) => (kind === 'navigation' ? [{ serverTiming: timings }] : []) } });
}

test('the page finds the plug-in by its MIME type and its name, beside the browser\'s own', () => {
  const { navigator: { plugins, mimeTypes }, Plugin, MimeType, PluginArray, MimeTypeArray } =
    page([{ name: 'db', description: '' }, entry()]);
  const mimeType = mimeTypes[TYPE];
  const plugin = mimeType.enabledPlugin;
  assert.ok(plugin instanceof Plugin && mimeType instanceof MimeType && plugins instanceof PluginArray &&
            mimeTypes instanceof MimeTypeArray, 'the browser\'s own kinds');
  assert.deepStrictEqual([{ ...mimeType }, { ...plugin }], [{ ...MIME_TYPE, enabledPlugin: plugin }, { ...PLUGIN, 0: mimeType }]);
  assert.ok(plugin.length === 1 && plugin[TYPE] === mimeType && plugin.namedItem(TYPE) === mimeType, 'its types');
  assert.ok(plugins.length === 2 && plugins[NAME] === plugin && plugins.namedItem(NAME) === plugin &&
            plugins.item(1) === plugin, 'the plug-ins by index and name');
  assert.deepStrictEqual([[...plugins].map((p) => p.name), Object.keys(mimeTypes), mimeTypes.namedItem('application/pdf')?.type],
                         [['PDF Viewer', NAME], ['0', '1'], 'application/pdf'], 'iterated, indexed (names are not), named');
});

test('without the host\'s entry, or with one that is not the host\'s, the page sees nothing of the plug-in', () => {
  const rows = [[], [{ ...entry(), name: 'passway' }], [{ name: 'passway-plugin', description: '%7Bname' }],
                [entry({ name: 'x' })], [entry(5)]];  // none, another name, not JSON, no MIME types, not an object
  for (const timings of rows) {
    const { navigator } = page(timings);
    assert.ok(navigator.mimeTypes[TYPE] === undefined && navigator.plugins.length === 1, JSON.stringify(timings));
  }
});
