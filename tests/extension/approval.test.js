// Who may use the plug-in: the administrator's list and rules, the user's approvals, the frame and the
// top-level page, plain http; and what a waiting element tells the popup.
import assert from 'node:assert';
import test from 'node:test';
import { Approvals, isPlainHttp, waitingEntry } from '../../extension/approval.js';

const PORTAL = 'https://vpn.example.com';
const MINE = 'https://mine.example.com';
const PLAIN = 'http://vpn.example.com';
const OTHER = 'https://news.example';
const LOOP = 'http://127.0.0.1:8000';

test('plain http: every http origin but loopback', () => {
  for (const origin of [PLAIN, 'http://10.0.0.1:8080', 'http://localhost.example.com', 'http://128.0.0.1'])
    assert.strictEqual(isPlainHttp(origin), true, origin);
  for (const origin of [PORTAL, 'http://localhost:8080', LOOP, 'http://127.9.9.9', 'http://[::1]:1', 'http://a.localhost', 'null'])
    assert.strictEqual(isPlainHttp(origin), false, origin);
});

test('approvals: an element runs when its frame and its page are both approved; a waiting one names the refusal', () => {
  const rows = [
    // [policy and user, frame origin, top origin, runs, the refusal its waiting entry shows]
    [{ managed: [PORTAL], user: [MINE] }, MINE, MINE, true, null],
    [{ managed: [PORTAL] }, PORTAL, OTHER, false, null],  // an approved portal framed by another site
    [{ managed: [PORTAL], user: [MINE], allowUserApprovals: false }, MINE, MINE, false, 'administrator'],
    [{ managed: [PORTAL], user: [MINE], allowUserApprovals: false }, PORTAL, MINE, false, 'administrator'],
    [{ user: [PLAIN] }, PLAIN, PLAIN, true, null],
    [{ managed: [LOOP, PLAIN], allowPlainHttp: false }, LOOP, PLAIN, false, 'plain-http'],  // refused by its page
    [{ managed: [PORTAL] }, PORTAL, 'null', false, null],  // a page of no origin (a file, a data: URL)
    [{ managed: [PORTAL], allowPlainHttp: false }, 'null', PORTAL, false, null],  // a sandboxed frame
  ];
  for (const [settings, origin, top, runs, refusal] of rows) {
    const approvals = new Approvals(settings);
    const name = `${JSON.stringify(settings)} ${origin} in ${top}`;
    assert.strictEqual(approvals.runs(origin, top), runs, name);
    assert.deepStrictEqual(waitingEntry(approvals, origin, top), { origin, top: top === origin ? null : top, refusal }, name);
  }
  // The origins that run by themselves (what pages see in navigator) leave out what the administrator refuses.
  const list = (settings) => new Approvals({ managed: [PORTAL, PLAIN], user: [MINE, PORTAL], ...settings }).list();
  assert.deepStrictEqual([list({ allowPlainHttp: false }), list({ allowUserApprovals: false })],
                         [[MINE, PORTAL], [PLAIN, PORTAL]]);
});
