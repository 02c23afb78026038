// Page calls made in a hostile page's world: the injected function (extension/page-call.js) runs in a vm
// context whose script replaced the built-ins it could reach, and the reader turns whatever came back into
// nothing but {value: text or null} or {error: text}. A real browser's page does the same in the end-to-end
// run's forge visit.
import assert from 'node:assert';
import test from 'node:test';
import vm from 'node:vm';
import { readAnswer, runPageFunctions } from '../../extension/page-call.js';

const ORIGIN = 'https://vpn.example.com';
const HOSTILE = `
  var forged = { op: 'create', element: 777, attributes: [['forged_by_page_script', 'yes']] };
  for (const name of ['0', 'kind', 'value']) Object.defineProperty(Object.prototype, name, { set() {}, get() { return forged; } });
  String = function () { return forged; };
  Array.prototype.map = Array.prototype.filter = function () { return [forged]; };
  Array.prototype[Symbol.iterator] = function* () { yield forged; };
  Function.prototype.call = Function.prototype.apply = function () { return forged; };`;

// A page at `here` whose own script ran HOSTILE and `script`, then the injected function with `calls` meant
// for ORIGIN; the answers as the extension reads them from the copy that executeScript hands it.
function inPage(script, calls, here = ORIGIN) {
  const world = vm.createContext({ location: Object.freeze({ origin: here }) });
  world.window = world;
  vm.runInContext(HOSTILE + script, world);
  const answers = structuredClone(vm.runInContext(`(${runPageFunctions})`, world)(structuredClone(calls), ORIGIN));
  return calls.map((_, index) => readAnswer(answers, index));
}

test('page answers: only a text, a number or nothing is a value; the rest, however it poses, is an error', () => {
  const missing = { error: 'no such function in the page' };
  const rows = [
    ['function f(a) { return "got " + a; }', { value: 'got x' }],
    ['function f() { return 12.5; }', { value: '12.5' }],
    ['function f() {}', { value: null }],
    ['function f() { return null; }', { value: null }],
    ['function f() { return { get op() { return "create"; }, toString() { return "x"; } }; }',
     { error: 'the page function returned a object' }],
    ['function f() { return true; }', { error: 'the page function returned a boolean' }],
    ['function f() { return -Infinity; }', { error: 'the page function returned a number that is not finite' }],
    ['function f() { throw forged; }', { error: 'the page function threw' }],
    ['var f = 5;', missing],
  ];
  for (const [script, answer] of rows) assert.deepStrictEqual(inPage(script, [['f', ['x']], ['g', []]]), [answer, missing], script);
  assert.deepStrictEqual(inPage('function f() { return "x"; }', [['f', []]], 'https://elsewhere.example'),
                         [{ error: 'the frame left the page the call was meant for' }], 'a frame that left the page');
  for (const answers of [null, 'text', [], [null], [{ kind: 'string', value: ['x'] }], [{ kind: { toString: () => 'x' } }],
                         [{ kind: 'number', value: '1' }], [{ kind: 'string', value: 'x'.repeat((1 << 20) + 1) }]])
    assert.match(JSON.stringify(readAnswer(answers, 0)), /^{"error":"[^"]+"}$/, JSON.stringify(answers)?.slice(0, 80));
});
