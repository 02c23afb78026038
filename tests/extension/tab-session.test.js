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
// What a port was sent, a text a message: its op and the element, call or request it is about.
const sent = (port) => port.sent.map(({ op, element, call, request }) => `${op} ${element ?? call ?? request ?? ''}`.trim());

// A browser with the administrator's `policy`, and a session of its tab 7 with these frames ({origin, top,
// frameId}), each announcing one element (key 1).
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

test('elements: waiting until frame and page are approved, then created; waiting again when taken back; gone', async () => {
  const { fake, tab, ports: [portal, framed, plain], host, stored } = await tabWith(
    [{ origin: PORTAL }, { origin: OTHER, top: PORTAL, frameId: 3 }, { origin: PLAIN, top: PORTAL, frameId: 5 }],
    { approvedOrigins: [PORTAL], allowPlainHttp: false });
  assert.deepStrictEqual(host.sent, [{ op: 'hello', version: 1, userAgent: navigator.userAgent, origin: PORTAL },
                                     { op: 'create', element: 1, attributes: [['frame', '0']] }]);
  const [other, refused] = [{ origin: OTHER, top: PORTAL, refusal: null }, { origin: PLAIN, top: PORTAL, refusal: 'plain-http' }];
  assert.deepStrictEqual([stored['waiting:7'], fake.badges.get(7).text], [[other, refused], '?']);
  assert.match(fake.badges.get(7).title, /other\.example \(inside .*\) wants .* administrator does not allow http:/);

  await fake.chrome.storage.local.set({ approvedOrigins: [OTHER, PLAIN] });  // the user allows both in the popup
  await tab.approvalsChanged();
  assert.deepStrictEqual([sent(host), stored['waiting:7'], fake.badges.get(7).text],
                         [['hello', 'create 1', 'create 2'], [refused], null], 'plain http stays refused');

  await fake.chrome.storage.local.set({ approvedOrigins: [PLAIN] });  // and takes one back: the host ends at once
  await tab.approvalsChanged();
  const again = fake.natives[1];
  assert.deepStrictEqual([host.disconnected, sent(again), stored['waiting:7']], [true, ['hello', 'create 1'], [other, refused]]);

  framed.onDisconnect.fire();  // the waiting ones go with their documents
  say(plain, { op: 'vanish', key: 1 });
  await settle();
  assert.strictEqual(stored['waiting:7'], undefined, 'nothing waits');
  tab.approvalsChanged();  // an approval changed meanwhile: every session looks again
  say(portal, { op: 'appear', key: 1, attributes: [] });  // its <param> children changed: made again, once
  await settle();
  assert.deepStrictEqual([sent(again), fake.natives.length], [['hello', 'create 1', 'destroy 1', 'create 4'], 2]);
});

test('page calls: in the host\'s order, batched per document while one runs; malformed ones refused', async () => {
  const { fake, host } = await tabWith([{ origin: PORTAL }, { origin: PORTAL, frameId: 4 }]);
  fake.answer = (calls) => calls.map(([, [arg]]) => ({ kind: 'string', value: `got ${arg}` }));
  const call = (id, name, ...args) => ({ op: 'call', call: id, element: 1, function: name, args });
  say(host, call(10, 'f', 'a'), call(11, 'f', 'b'), call(12, 'f', 'c'), call(13, 'alert("x")'), call(14, 'f', {}),
      call(15, 'f', 'x', 'y'), { ...call(16, 'f', 'd'), element: 2 }, call(17, 'f', 'e'), { ...call(18, 'f'), version: 2 });
  await settle();
  assert.deepStrictEqual(fake.injections.map(({ target, calls }) => `${target.documentIds} ${calls.map(([, [arg]]) => arg)}`),
                         ['doc0 a', 'doc0 b,c', 'doc4 d', 'doc0 e']);
  const refused = { error: 'not a call the extension makes' };
  assert.deepStrictEqual(host.sent.slice(3), [{ value: 'got a' }, { value: 'got b' }, { value: 'got c' }, refused, refused,
    refused, { value: 'got d' }, { value: 'got e' }].map((answer, at) => ({ op: 'result', call: 10 + at, ...answer })));
});

test('downloads: made in the element\'s frame, relayed while open, cancelled by the host or with their element', async () => {
  const { host, ports: [portal, framed] } = await tabWith([{ origin: PORTAL }, { origin: PORTAL, frameId: 4 }]);
  const get = (request, url, element = 1) => ({ op: 'fetch', request, element, url });
  say(host, get(1, `${PORTAL}/a`), get(2, 'file:///etc/passwd'), get(3, `${PORTAL}/b`), get(4, `${PORTAL}/c`),
      get(5, `${PORTAL}/d`, 2));
  const response = (request, status) => ({ op: 'response', request, status, mimeType: 'text/html' });
  say(portal, response(1, 200), { op: 'data', request: 1, data: 'AA' }, response(3, 404), { op: 'data', request: 3, data: 'B' });
  say(host, { op: 'cancel', request: 1 });
  say(portal, { op: 'data', request: 1, data: 'CC' });
  portal.onDisconnect.fire();  // the document went, with its element
  assert.deepStrictEqual(host.sent.slice(3), [{ op: 'end', request: 2, ok: false, error: 'not an http(s) URL: file:///etc/passwd' },
    response(1, 200), { op: 'data', request: 1, data: 'AA' }, response(3, 404), { op: 'destroy', element: 1 }]);
  assert.deepStrictEqual([sent(portal), sent(framed)], [['fetch 1', 'fetch 3', 'fetch 4', 'cancel 1', 'cancel 4'], ['fetch 5']]);
});

test('a host that goes: its elements are lost, a session still running hears ssldrop in its own document', async () => {
  const { fake, tab, ports: [portal], host, stored } = await tabWith([{ origin: PORTAL }, { origin: PORTAL, frameId: 4 }]);
  const session = JSON.stringify({ op: 'session', version: 1, element: 2 });  // a message in two parts
  say(host, { op: 'ready', name: 'plug-in', plugin: '/x.so' }, { op: 'session', element: 1 },
      { op: 'call', call: 1, element: 1, function: 'c_addcomm', args: ['ssldrop'] },  // the plug-in ended that one
      { op: 'part', id: 5, data: session.slice(0, 9) }, { op: 'part', id: 6, data: '{', last: true },
      { op: 'part', id: 5, data: session.slice(9), last: true }, { op: 'fetch', request: 3, element: 1, url: `${PORTAL}/p` });
  await settle();
  host.onDisconnect.fire();
  await settle();
  assert.deepStrictEqual(fake.injections.map(({ target, calls }) => `${target.documentIds} ${calls.flat(2)}`),
                         ['doc0 c_addcomm,ssldrop', 'doc4 c_addcomm,ssldrop'], 'the plug-in\'s own call, then the running one\'s');
  assert.deepStrictEqual([sent(portal).at(-1), fake.badges.get(7).text], ['cancel 3', '!']);
  await tab.approvalsChanged();  // an approval changed elsewhere: the notice stays
  assert.deepStrictEqual(fake.badges.get(7).text, '!');
  assert.match(fake.badges.get(7).title, /the VPN session ended\. Reload the page/);

  say(portal, { op: 'appear', key: 2, attributes: [] });  // a new element: a new host, the lost ones not again
  await tab.approvalsChanged();
  await settle();
  assert.deepStrictEqual(sent(fake.natives[1]), ['hello', 'create 3']);
  tab.close();
  await settle();
  assert.deepStrictEqual(Object.keys(stored).filter((key) => key.endsWith(':7')), [], 'a closed tab leaves nothing kept');
});

test('a page call answered after its host ended is sent to no later host', async () => {
  const MINE = 'https://mine.example';
  const { fake, tab } = await tabWith([{ origin: MINE }], {});
  const approve = async (origins) => { await fake.chrome.storage.local.set({ approvedOrigins: origins }); await tab.approvalsChanged(); };
  await approve([MINE]);
  const inject = fake.chrome.scripting.executeScript;
  let answer;
  fake.chrome.scripting.executeScript = (details) => new Promise((resolve) => { answer = () => resolve(inject(details)); });
  say(fake.natives[0], { op: 'call', call: 1, element: 1, function: 'f', args: [] });
  await settle();
  await approve([]);  // taken back while the page answers, and given again
  await approve([MINE]);
  answer();
  await settle();
  assert.deepStrictEqual(fake.natives.map((host) => sent(host).filter((m) => m.startsWith('result'))), [[], []]);
});
