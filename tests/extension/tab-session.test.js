// One tab's part of the bridge (extension/tab-session.js) against a stand-in browser: which elements reach
// the host and when, the page calls it asks for, its messages in parts, and what happens when it goes.
import assert from 'node:assert';
import test from 'node:test';
import { FakeBrowser, settle } from './fake-browser.js';

const TYPE = 'application/x-orvane-sslvpn';
const PORTAL = 'https://vpn.example.com';
const OTHER = 'https://other.example';

// A browser whose administrator approved `managed`, and a session of its tab 7 with these frames, each
// announcing one element: [{origin, top, frameId}].
async function tabWith(frames, managed = [PORTAL]) {
  const fake = new FakeBrowser({ managed: { approvedOrigins: managed } });
  globalThis.chrome = fake.chrome;
  const { TabSession } = await import('../../extension/tab-session.js');
  const tab = new TabSession(7);
  const ports = frames.map((frame) => {
    const port = fake.framePort(frame);
    tab.attachFrame(port);
    port.onMessage.fire({ op: 'appear', key: 1, attributes: [['type', TYPE], ['frame', String(frame.frameId ?? 0)]] });
    return port;
  });
  await settle();
  return { fake, tab, ports, host: fake.natives[0] };
}

const ops = (port) => port.sent.map((message) => message.op);

test('elements: made once their frame and their page are approved, destroyed with their document', async () => {
  const { fake, tab, ports: [, framed], host } = await tabWith([{ origin: PORTAL }, { origin: OTHER, top: PORTAL, frameId: 3 }]);
  assert.deepStrictEqual(ops(host), ['hello', 'create']);
  assert.deepStrictEqual(host.sent[1], { op: 'create', element: 1, attributes: [['type', TYPE], ['frame', '0']] });
  assert.deepStrictEqual(fake.chrome.storage.session.values['waiting:7'], [{ origin: OTHER, top: PORTAL, refusal: null }]);
  assert.strictEqual(fake.badges.get(7).text, '?');

  await fake.chrome.storage.local.set({ approvedOrigins: [OTHER] });  // the user allows it in the popup
  await tab.approvalsChanged();
  assert.deepStrictEqual(host.sent.slice(2), [{ op: 'create', element: 2, attributes: [['type', TYPE], ['frame', '3']] }]);
  assert.strictEqual(fake.chrome.storage.session.values['waiting:7'], undefined);
  assert.strictEqual(fake.natives.length, 1, 'one host for the tab');

  framed.onDisconnect.fire();  // its document went
  assert.deepStrictEqual(host.sent.at(-1), { op: 'destroy', element: 2 });
});

test('approvals taken back: the tab\'s host ends at once, its elements wait again, the approved get a new host', async () => {
  const { fake, tab, host } = await tabWith([{ origin: PORTAL }, { origin: OTHER, top: PORTAL, frameId: 3 }],
                                            [PORTAL, OTHER]);
  assert.deepStrictEqual(ops(host), ['hello', 'create', 'create']);
  fake.chrome.storage.managed.values.approvedOrigins = [PORTAL];
  await tab.approvalsChanged();
  assert.strictEqual(host.disconnected, true);
  const [, again] = fake.natives;
  assert.deepStrictEqual(ops(again), ['hello', 'create']);
  assert.deepStrictEqual(again.sent[1].attributes[1], ['frame', '0']);
  assert.deepStrictEqual(fake.chrome.storage.session.values['waiting:7'], [{ origin: OTHER, top: PORTAL, refusal: null }]);
});

test('page calls: in the host\'s order, batched per document while one runs, answered field by field', async () => {
  const { fake, host } = await tabWith([{ origin: PORTAL }]);
  fake.answer = (calls) => calls.map(([, [arg]]) => (arg === 'b' ? { kind: 'object', value: { op: 'create' } }
    : { kind: 'string', value: `got ${arg}`, op: 'destroy', element: 9 }));
  const call = (id, name, args) => host.onMessage.fire({ op: 'call', version: 1, call: id, element: 1, function: name, args });
  call(10, 'c_addcomm', ['a']);
  call(11, 'c_addcomm', ['b']);
  call(12, 'c_addcomm', ['c']);
  call(13, 'alert("x")', []);
  call(14, 'c_addcomm', [{}]);
  await settle();
  assert.deepStrictEqual(fake.injections.map(({ calls }) => calls.map(([, [arg]]) => arg)), [['a'], ['b', 'c']]);
  assert.deepStrictEqual(fake.injections[0].target, { tabId: 7, documentIds: [`doc-${PORTAL}-0`] });
  assert.deepStrictEqual(host.sent.filter((m) => m.op === 'result'), [
    { op: 'result', call: 10, value: 'got a' },
    { op: 'result', call: 11, error: 'the page function returned a object' },
    { op: 'result', call: 12, value: 'got c' },
    { op: 'result', call: 13, error: 'not a call the extension makes' },
    { op: 'result', call: 14, error: 'not a call the extension makes' },
  ]);
});

test('a host that goes: a running session hears ssldrop (once, in its own document), the tab says so', async () => {
  const { fake, ports: [portal], host } = await tabWith([{ origin: PORTAL }, { origin: PORTAL, frameId: 4 }]);
  host.onMessage.fire({ op: 'ready', version: 1, name: 'plug-in', plugin: '/x.so' });
  const session = JSON.stringify({ op: 'session', version: 1, element: 2 });  // a message in two parts
  host.onMessage.fire({ op: 'part', version: 1, id: 5, data: session.slice(0, 9) });
  host.onMessage.fire({ op: 'part', version: 1, id: 5, data: session.slice(9), last: true });
  host.onMessage.fire({ op: 'fetch', version: 1, request: 3, element: 1, url: `${PORTAL}/package.tar` });
  host.onDisconnect.fire();
  await settle();
  assert.deepStrictEqual(fake.injections, [{ target: { tabId: 7, documentIds: [`doc-${PORTAL}-4`] },
                                             calls: [['c_addcomm', ['ssldrop']]] }]);
  assert.deepStrictEqual(portal.sent, [{ op: 'fetch', request: 3, url: `${PORTAL}/package.tar` }, { op: 'cancel', request: 3 }]);
  assert.strictEqual(fake.badges.get(7).text, '!');
  assert.match(fake.badges.get(7).title, /session ended\. Reload the page/);
});

test('a session the plug-in ended itself, or a host that never was ready, makes no page call', async () => {
  const { fake, host } = await tabWith([{ origin: PORTAL }]);
  host.onMessage.fire({ op: 'ready', version: 1 });
  host.onMessage.fire({ op: 'session', version: 1, element: 1 });
  host.onMessage.fire({ op: 'call', version: 1, call: 1, element: 1, function: 'c_addcomm', args: ['ssldrop'] });
  await settle();
  host.onDisconnect.fire();
  await settle();
  assert.deepStrictEqual(fake.injections.map(({ calls }) => calls), [[['c_addcomm', ['ssldrop']]]], 'the plug-in\'s own');
  assert.match(fake.badges.get(7).title, /stopped unexpectedly\. Reload/);

  const missing = await tabWith([{ origin: PORTAL }]);
  missing.fake.chrome.runtime.lastError = { message: 'Specified native messaging host not found.' };
  missing.host.onDisconnect.fire();
  await settle();
  assert.strictEqual(missing.fake.chrome.storage.session.values.hostStatus.state, 'missing');
  assert.ok(!missing.fake.badges.get(7)?.text, 'no tab notice: the whole button says it');
  assert.strictEqual(missing.fake.badges.get('all').text, '!');
});
