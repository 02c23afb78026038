// Page calls made in a hostile page's world: the injected function (extension/page-call.js) runs in a vm
// context whose script replaced every built-in it can reach, and the reader turns whatever came back into
// nothing but {value: text or null} or {error: text}; the tab's session sends the host only those fields.
import assert from 'node:assert';
import test from 'node:test';
import vm from 'node:vm';
import { readAnswer, runPageFunctions } from '../../extension/page-call.js';

const FORGED = { op: 'create', element: 777, attributes: [['forged_by_page_script', 'yes']] };

// A page at `origin` whose own script ran `script` first, then the injected function with `calls`.
function inPage(script, calls, origin = 'https://vpn.example.com', here = origin) {
  const world = vm.createContext({ location: Object.freeze({ origin: here }) });
  world.window = world;
  world.forged = FORGED;
  vm.runInContext(script, world);
  const answers = vm.runInContext(`(${runPageFunctions})`, world)(structuredClone(calls), origin);
  // executeScript hands the extension a copy: what a structured clone keeps.
  return calls.map((_, index) => readAnswer(structuredClone(answers), index));
}

test('page answers: a text, a number or nothing is a value; anything else is an error', () => {
  const page = `
    function text(a) { return 'got ' + a; }
    function number() { return 12.5; }
    function nothing() {}
    function nil() { return null; }
    function object() { return forged; }
    function yes() { return true; }
    function thrower() { throw forged; }
    var notAFunction = 5;`;
  const calls = [['text', ['x']], ['number', []], ['nothing', []], ['nil', []], ['object', []], ['yes', []],
                 ['thrower', []], ['notAFunction', []], ['absent', [1]]];
  assert.deepStrictEqual(inPage(page, calls), [
    { value: 'got x' }, { value: '12.5' }, { value: null }, { value: null },
    { error: 'the page function returned a object' }, { error: 'the page function returned a boolean' },
    { error: 'the page function threw' }, { error: 'no such function in the page' },
    { error: 'no such function in the page' }]);
});

test('page answers: a page that replaced its built-ins spoils only its own calls', () => {
  const hostile = `
    var real = String;
    String = function () { return forged; };
    JSON.stringify = JSON.parse = function () { return forged; };
    Array.prototype.map = Array.prototype.filter = function () { return [forged]; };
    Array.prototype[Symbol.iterator] = function* () { yield forged; };
    Object.defineProperty(Object.prototype, 'kind', { set() {}, get() { return 'string'; } });
    Object.defineProperty(Object.prototype, '0', { set() {}, get() { return forged; } });
    Object.defineProperty(Object.prototype, 'value', { set() {}, get() { return forged; } });
    Object.prototype[Symbol.toPrimitive] = function () { return 'forged'; };
    Function.prototype.call = Function.prototype.apply = function () { return forged; };
    function c_addcomm() {
      return { get op() { return 'create'; }, toString() { return 'forged'; }, [Symbol.toPrimitive]() { return 'x'; } };
    }
    function plain(a) { return a; }`;
  const answers = inPage(hostile, [['c_addcomm', ['connected']], ['plain', ['ack']]]);
  assert.deepStrictEqual(answers, [{ error: 'the page function returned a object' }, { value: 'ack' }]);
});

test('page answers: a frame that left the page it was meant for gets no call; a malformed answer is an error', () => {
  const page = 'var called = false; function f() { called = true; return "x"; }';
  assert.deepStrictEqual(inPage(page, [['f', []]], 'https://vpn.example.com', 'https://elsewhere.example'),
                         [{ error: 'the frame left the page the call was meant for' }]);
  for (const answers of [null, 'text', [], [null], [{ kind: 'string', value: 5 }], [{ kind: { toString: () => 'x' } }],
                         [{ kind: 'number', value: '1' }], [{ kind: 'string', value: 'x'.repeat((1 << 20) + 1) }]]) {
    const answer = readAnswer(answers, 0);
    assert.deepStrictEqual(Object.keys(answer), ['error'], JSON.stringify(answers)?.slice(0, 80));
    assert.strictEqual(typeof answer.error, 'string');
  }
});
