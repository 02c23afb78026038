// The page rules of the extension (extension/embedding.js) against what QtWebKit hands the plug-in: each
// row's text is the parameter text the plug-in built in QtWebKit for the same markup (the "vpnA" line of its
// log, the browser's pid left out; the plug-in drops the names it consumes, none of which appear here).
import assert from 'node:assert';
import test from 'node:test';
import { el } from './fake-dom.js';
import { contentScript } from './content-script.js';

const { PLUGIN_TYPE, asksForPlugin, servedElement, parametersOf } = contentScript('embedding.js', ['PLUGIN_TYPE']);

const T = PLUGIN_TYPE;
const param = (name, value) => el('param', value === undefined ? { name } : { name, value });
const text = (element) => parametersOf(element).map(([name, value]) => `${name}=${value}&`).join('');

test('parameters: <param> children first, then the attributes that no <param> named', () => {
  const rows = [
    ['params before attributes, in document order',
     el('object', { type: T, width: '2', height: '2' },
        [param('last_param', '1'), param('held', 'a b&c'), param('tunvoversion', '')]),
     `last_param=1&held=a b&c&tunvoversion=&type=${T}&width=2&height=2&`],
    ['a <param> hides the attribute of its name',
     el('object', { type: T, width: '2', height: '2', foo: 'attr' }, [param('foo', 'param')]),
     `foo=param&type=${T}&width=2&height=2&`],
    ['letter case aside; the <param> keeps its own',
     el('object', { type: T, width: '2', height: '2', foo: 'attr' }, [param('FOO', 'param'), param('Width', '9')]),
     `FOO=param&Width=9&type=${T}&height=2&`],
    ['no name or an empty one: left out; no value: empty; the same name twice: both',
     el('object', { type: T, width: '2', height: '2' },
        [el('param', { value: 'v1' }), param('novalue'), param('', 'v2'), el('param', { id: 'pid', value: 'v3' }),
         param('a', '1'), param('a', '2')]),
     `novalue=&a=1&a=2&type=${T}&width=2&height=2&`],
    ['only direct children',
     el('object', { type: T }, [el('div', {}, [param('deep', '1')]), param('top', '1')]),
     `top=1&type=${T}&`],
    ['a <param name="type"> gives the type and stays where it is',
     el('object', { width: '2', height: '2' }, [param('type', T), param('o', '1')]),
     `type=${T}&o=1&width=2&height=2&`],
    ['data and no src: src with the data after everything',
     el('object', { type: T, data: 'pkg.bin', width: '2', height: '2' }, [param('o', '1')]),
     `o=1&type=${T}&data=pkg.bin&width=2&height=2&src=pkg.bin&`],
    ['an <embed>: its attributes in document order',
     el('embed', { z: '1', type: T, a: '2', width: '3', height: '4', src: '' }),
     `z=1&type=${T}&a=2&width=3&height=4&src=&`],
  ];
  for (const [name, element, expected] of rows) assert.strictEqual(text(element), expected, name);
});

test('served elements: the plug-in\'s type or suffix, never the fallback of an <object> of its own', () => {
  const shown = () => true;
  const inner = () => el('embed', { type: T, e: '1' });
  const rows = [
    // [row, the outer element, whether the outer is served, whether the inner embed is]
    ['an <object> of the plug-in\'s serves, its <embed> fallback not', el('object', { type: T }, [inner()]), true, false],
    ['an <object> of another type: its <embed> fallback serves', el('object', { type: 'application/x-other' }, [inner()]), false, true],
    ['an <object> with no type: its <embed> fallback serves', el('object', {}, [param('o', '1'), inner()]), false, true],
    ['the type in another letter case', el('object', { type: 'Application/X-Orvane-SSLVPN' }, [inner()]), true, false],
    ['the type from a <param>', el('object', {}, [param('type', T), inner()]), true, false],
    ['parameters after ";" aside', el('object', { type: `${T}; charset=x` }, [inner()]), true, false],
    ['no type, data ending in the suffix', el('object', { data: 'pkg.xvpn?x=1' }, [inner()]), true, false],
    ['no type, data ending in another suffix', el('object', { data: 'pkg.xvpnx' }, [inner()]), false, true],
    ['a type wins over the suffix', el('object', { type: 'text/html', data: 'pkg.xvpn' }, [inner()]), false, true],
  ];
  for (const [name, outer, outerServed, innerServed] of rows) {
    assert.strictEqual(servedElement(outer, shown), outerServed, `${name}: the <object>`);
    assert.strictEqual(servedElement(outer.children.at(-1), shown), innerServed, `${name}: the <embed>`);
  }
  assert.ok(asksForPlugin(el('embed', { src: '/dl/PKG.XVPN' })), 'an <embed> by its src');
  assert.ok(!asksForPlugin(el('embed', { src: '' })), 'an <embed> with an empty src');
  assert.ok(!asksForPlugin(el('div', { type: T })), 'another element');
  const nested = el('object', { type: T }, [el('object', { type: T }, [param('inner', '1')])]);
  assert.ok(!servedElement(nested.children[0], shown), 'an <object> in an <object> of the plug-in\'s');
  assert.ok(!servedElement(el('embed', { type: T }), () => false), 'an element the browser does not lay out');
});
