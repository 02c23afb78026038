// The page rules of the extension (extension/embedding.js): which elements the plug-in serves, and the
// parameters each hands to NPP_New. Every ordinary way of embedding it is checked against what QtWebKit made
// of it in each browser by the end-to-end run (e2e/portal/embedding-cases.json); here, the rules' edges.
import assert from 'node:assert';
import test from 'node:test';
import { contentScript, el } from './fake-dom.js';

const { PLUGIN_TYPE: T, asksForPlugin, servedElement, parametersOf } = contentScript('embedding.js', {}, ['PLUGIN_TYPE']);
const param = (name, value) => el('param', value === undefined ? { name } : { name, value });
const text = (element) => parametersOf(element).map(([name, value]) => `${name}=${value}&`).join('');

test('parameters: <param> children first, then the attributes that no <param> named', () => {
  const rows = [
    ['direct <param> children only, one hiding the attribute of its name (letter case aside); data: src, last',
     el('object', { data: 'pkg.bin', type: T, foo: 'attr' }, [param('a', '1'), el('div', {}, [param('deep', '1')]),
                                                            el('param', { value: 'v' }), param('FOO', 'param')]),
     `a=1&FOO=param&data=pkg.bin&type=${T}&src=pkg.bin&`],
    ['an <object> with a src keeps it', el('object', { data: 'a', src: 'b' }), 'data=a&src=b&'],
    ['an <embed>: its attributes alone', el('embed', { z: '1', type: T, data: 'd' }), `z=1&type=${T}&data=d&`],
  ];
  for (const [name, element, expected] of rows) assert.strictEqual(text(element), expected, name);
});

test('served elements: the plug-in\'s type or suffix, never the fallback of an <object> of its own', () => {
  const rows = [
    // [the <object>'s attributes, whether it is the plug-in's (else the <embed> of the plug-in's inside it is)]
    [{ type: 'Application/X-Orvane-SSLVPN' }, true], [{ type: `${T}; charset=x` }, true], [{}, false],
    [{ data: 'pkg.xvpn?x=1' }, true], [{ data: 'pkg.xvpnx' }, false], [{ type: 'text/html', data: 'pkg.xvpn' }, false],
  ];
  for (const [attributes, ours] of rows) {
    const object = el('object', attributes, [el('embed', { type: T })]);
    assert.strictEqual(servedElement(object, () => true), ours, `${JSON.stringify(attributes)}: the <object>`);
    assert.strictEqual(servedElement(object.children[0], () => true), !ours, `${JSON.stringify(attributes)}: the <embed>`);
  }
  assert.ok(asksForPlugin(el('embed', { src: '/dl/PKG.XVPN' })), 'an <embed> by its src');
  const nested = el('object', { type: T }, [el('div', {}, [el('object', { type: T })])]);
  assert.ok(!servedElement(nested.children[0].children[0], () => true), 'an <object> deep in an <object> of its own');
  assert.ok(!servedElement(el('embed', { type: T }), () => false), 'an element the browser does not lay out');
});
