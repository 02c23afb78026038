// One tab's part of the bridge (extension/tab-session.js) against a stand-in browser: which elements reach
// the host and when, the page calls it asks for, its messages in parts, its downloads, and what happens when
// it goes.
import assert from 'node:assert';
import test from 'node:test';
import { FakeBrowser, settle } from './fake-browser.js';

const PORTAL = 'https://vpn.example.com';
const OTHER = 'https://other.example';
const PLAIN = 'http://plain.example';

// Messages as the host (protocol version 1) or a frame's content script sends them on `port`.
const say = (port, ...messages) => messages.forEach((message) => port.onMessage.fire({ version: 1, ...message }));
const created = (element, frame) => ({ op: 'create', element, attributes: [['frame', frame]] });

// A browser with the administrator's `policy`, and a session of its tab 7 with these frames ({origin, top,
// frameId}), each announcing one element (key 1) whose parameters name its frame.
async function tabWith(frames, policy = { approvedOrigins: [PORTAL] }) {
  const fake = new FakeBrowser(policy);
  globalThis.chrome = fake.chrome;
  const { TabSession } = await import('../../extension/tab-session.js');
  const tab = new TabSession(7);
  const ports = frames.map((frame) => {
    const port = fake.framePort(frame);
    tab.attachFrame(port);
    say(port, { op: 'appear', key: 1, attributes: [['frame', String(frame.frameId ?? 0)]] });
    return port;
  });
  await settle();
  return { fake, tab, ports, host: fake.natives[0], stored: fake.chrome.storage.session.values };
}

test('elements: waiting until their frame and page are approved, created then, again waiting when taken back', async () => {
  const { fake, tab, ports: [portal, framed, plain], host, stored } = await tabWith(
    [{ origin: PORTAL }, { origin: OTHER, top: PORTAL, frameId: 3 }, { origin: PLAIN, top: PORTAL, frameId: 5 }],
    { approvedOrigins: [PORTAL], allowPlainHttp: false });
  assert.deepStrictEqual(host.sent, [{ op: 'hello', version: 1, userAgent: navigator.userAgent, origin: PORTAL },
                                     created(1, '0')]);
  const [other, refused] = [{ origin: OTHER, top: PORTAL, refusal: null }, { origin: PLAIN, top: PORTAL, refusal: 'plain-http' }];
  assert.deepStrictEqual(stored['waiting:7'], [other, refused]);
  assert.strictEqual(fake.badges.get(7).text, '?');
  assert.match(fake.badges.get(7).title, /other\.example \(inside .*\) wants .* administrator does not allow http:/);

  await fake.chrome.storage.local.set({ approvedOrigins: [OTHER, PLAIN] });  // the user allows both in the popup
  await tab.approvalsChanged();
  assert.deepStrictEqual([host.sent.slice(2), stored['waiting:7']], [[created(2, '3')], [refused]]);
  assert.strictEqual(fake.badges.get(7).text, null, 'nothing the user can allow');

  await fake.chrome.storage.local.set({ approvedOrigins: [PLAIN] });  // and takes one back: the host ends at once
  await tab.approvalsChanged();
  const again = fake.natives[1];
  assert.deepStrictEqual([host.disconnected, again.sent.slice(1), stored['waiting:7']], [true, [created(1, '0')], [other, refused]]);

  framed.onDisconnect.fire();  // the waiting ones go with their documents
  say(plain, { op: 'vanish', key: 1 });
  say(portal, { op: 'appear', key: 1, attributes: [['frame', '0']] });  // its <param> children changed: made again
  await settle();
  assert.deepStrictEqual(again.sent.slice(2), [{ op: 'destroy', element: 1 }, created(4, '0')]);
  assert.strictEqual(stored['waiting:7'], undefined, 'nothing waits');
  assert.strictEqual(fake.natives.length, 2, 'one host at a time for the tab');
});

test('page calls: in the host\'s order, batched per document while one runs, answered field by field', async () => {
  const { fake, host } = await tabWith([{ origin: PORTAL }]);
  fake.answer = (calls) => calls.map(([, [arg]]) => (arg === 'b' ? { kind: 'object', value: { op: 'create' } }
    : { kind: 'string', value: `got ${arg}`, op: 'destroy', element: 9 }));
  const call = (id, name, ...args) => ({ op: 'call', call: id, element: 1, function: name, args });
  say(host, call(10, 'c_addcomm', 'a'), call(11, 'c_addcomm', 'b'), call(12, 'c_addcomm', 'c'), call(13, 'alert("x")'),
      call(14, 'c_addcomm', {}));
  await settle();
  assert.deepStrictEqual(fake.injections, [{ target: { tabId: 7, documentIds: ['doc0'] }, calls: [['c_addcomm', ['a']]] },
    { target: { tabId: 7, documentIds: ['doc0'] }, calls: [['c_addcomm', ['b']], ['c_addcomm', ['c']]] }]);
  const refused = { error: 'not a call the extension makes' };
  assert.deepStrictEqual(host.sent.slice(2), [{ value: 'got a' }, { error: 'the page function returned a object' },
    { value: 'got c' }, refused, refused].map((answer, at) => ({ op: 'result', call: 10 + at, ...answer })));
});

test('downloads: made in the element\'s frame, relayed while open, cancelled by the host or with their element', async () => {
  const { host, ports: [portal] } = await tabWith([{ origin: PORTAL }]);
  const fetch = (request, url) => ({ op: 'fetch', request, element: 1, url });
  say(host, fetch(1, `${PORTAL}/a`), fetch(2, 'file:///etc/passwd'), fetch(3, `${PORTAL}/b`), fetch(4, `${PORTAL}/c`));
  const response = (request, status) => ({ op: 'response', request, status, mimeType: 'text/html' });
  say(portal, response(1, 200), { op: 'data', request: 1, data: 'AA' }, response(3, 404), { op: 'data', request: 3, data: 'B' });
  say(host, { op: 'cancel', request: 1 });
  say(portal, { op: 'data', request: 1, data: 'CC' });
  portal.onDisconnect.fire();  // the document went, with its element
  assert.deepStrictEqual(host.sent.slice(2), [{ op: 'end', request: 2, ok: false, error: 'not an http(s) URL: file:///etc/passwd' },
    response(1, 200), { op: 'data', request: 1, data: 'AA' }, response(3, 404), { op: 'destroy', element: 1 }]);
  assert.deepStrictEqual(portal.sent.map(({ op, request }) => `${op} ${request}`),
                         ['fetch 1', 'fetch 3', 'fetch 4', 'cancel 1', 'cancel 4']);
});

test('a host that goes: its elements are lost, a session still running hears ssldrop in its own document', async () => {
  const { fake, ports: [portal], host } = await tabWith([{ origin: PORTAL }, { origin: PORTAL, frameId: 4 }]);
  const session = JSON.stringify({ op: 'session', version: 1, element: 2 });  // a message in two parts
  say(host, { op: 'ready', name: 'plug-in', plugin: '/x.so' }, { op: 'session', element: 1 },
      { op: 'call', call: 1, element: 1, function: 'c_addcomm', args: ['ssldrop'] },  // the plug-in ended that one
      { op: 'part', id: 5, data: session.slice(0, 9) }, { op: 'part', id: 6, data: '{', last: true },
      { op: 'part', id: 5, data: session.slice(9), last: true }, { op: 'fetch', request: 3, element: 1, url: `${PORTAL}/p` });
  await settle();
  host.onDisconnect.fire();
  await settle();
  assert.deepStrictEqual(fake.injections.map(({ target, calls }) => [target.documentIds[0], calls]),
                         [['doc0', [['c_addcomm', ['ssldrop']]]], ['doc4', [['c_addcomm', ['ssldrop']]]]]);
  assert.deepStrictEqual(portal.sent.at(-1), { op: 'cancel', request: 3 });
  assert.strictEqual(fake.badges.get(7).text, '!');
  assert.match(fake.badges.get(7).title, /the VPN session ended\. Reload the page/);

  say(portal, { op: 'appear', key: 2, attributes: [] });  // a new element: a new host, without the lost ones
  await settle();
  assert.deepStrictEqual(fake.natives[1].sent.slice(1), [{ op: 'create', element: 3, attributes: [] }]);
});
