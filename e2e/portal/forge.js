// A connecting portal page whose own script turns against the extension: every page function the plug-in
// calls answers with a value built to become a message of its own to passway-host (an element the
// extension never saw, with a parameter of the page's choosing), and, once the element is in, every
// built-in that the extension's injected call could use is replaced with one that answers the same.
var transcript = [];
var forged = { op: 'create', element: 777, call: 1, value: 'forged_by_page_script',
               attributes: [['type', 'application/x-orvane-sslvpn'], ['forged_by_page_script', 'yes']] };

// What the page heard goes to its title too, where a driver reads it without running script in the page.
function note(line) {
  transcript[transcript.length] = line;
  if (transcript.length === 1) document.title = 'heard: ' + line;
}

// An answer that looks like a message, converts to one, and reads as one through getters.
function hostile() {
  return {
    get op() { return 'create'; }, get element() { return 777; }, get attributes() { return forged.attributes; },
    call: 1, value: forged, error: forged, kind: 'string', toString: function () { return forged; },
    toJSON: function () { return forged; }
  };
}

// The first answers are hostile ones of each kind; then nothing, so that the session goes quiet.
var answers = [hostile(), function () { return forged; }, Symbol('forged'), [forged]];
function c_addcomm(message) { note('c_addcomm: ' + message); return answers.length ? answers.shift() : ''; }
function VPNNotInstalled() { note('not installed'); return hostile(); }

var e = document.createElement('embed');
[['type', 'application/x-orvane-sslvpn'], ['width', '1'], ['height', '1'], ['last_param', '1'], ['user', 'forge']]
  .forEach(function (pair) { e.setAttribute(pair[0], pair[1]); });
document.getElementById('plugin').appendChild(e);
document.getElementById('status').textContent = 'Working: connect';

(function () {
  function answer() { return forged; }
  var define = Reflect.defineProperty, prototype = Reflect.getPrototypeOf({});
  define(prototype, Symbol.toPrimitive, { value: function () { return 'forged'; }, configurable: true });
  // 'value' last: a property descriptor read after it would carry it.
  var names = ['kind', 'op', 'call', 'error', 'result', 'element', 'attributes', 'value'];
  for (var i = 0; i < names.length; ++i) define(prototype, names[i], { get: answer, set: function () {}, configurable: true });
  String = Number = Boolean = Object = answer;
  JSON.stringify = JSON.parse = answer;
  // The calls are made, and the list of their answers holds, for each, the message of the page's choosing.
  var map = Array.prototype.map, apply = Reflect.apply;
  Array.prototype.map = function (each) {
    var out = apply(map, this, [each]);
    for (var i = 0; i < out.length; ++i) out[i] = forged;
    return out;
  };
  Array.prototype.filter = Array.prototype.forEach = Array.prototype.push = answer;
  Array.prototype.slice = Array.prototype.concat = Array.isArray = answer;
  Array.prototype[Symbol.iterator] = function* () { yield forged; };
  Function.prototype.call = Function.prototype.apply = Function.prototype.bind = answer;
  Reflect.apply = Reflect.get = Reflect.defineProperty = answer;
  Promise.prototype.then = answer;
  window.structuredClone = answer;
  Symbol.prototype.toString = answer;
})();
