// Who may use the plug-in: the administrator's list and rules, the user's approvals, the frame and the
// top-level page, plain http; and what a waiting element tells the popup.
import assert from 'node:assert';
import test from 'node:test';
import { Approvals, isPlainHttp, waitingEntry } from '../../extension/approval.js';

const PORTAL = 'https://vpn.example.com';
const MINE = 'https://mine.example.com';
const PLAIN = 'http://vpn.example.com';
const OTHER = 'https://news.example';

test('plain http: every http origin but loopback', () => {
  for (const origin of [PLAIN, 'http://10.0.0.1:8080', 'http://localhost.example.com', 'http://128.0.0.1'])
    assert.strictEqual(isPlainHttp(origin), true, origin);
  for (const origin of [PORTAL, 'http://localhost:8080', 'http://127.0.0.1:80', 'http://127.9.9.9', 'http://[::1]:1',
                        'http://portal.localhost'])
    assert.strictEqual(isPlainHttp(origin), false, origin);
});

test('approvals: an element runs when its frame and its page are both approved, under the administrator\'s rules', () => {
  const rows = [
    // [policy and user, frame origin, top origin, runs, what refuses the frame's origin]
    [{ managed: [PORTAL] }, PORTAL, PORTAL, true, null],
    [{ user: [MINE] }, MINE, MINE, true, null],
    [{ managed: [PORTAL] }, PORTAL, OTHER, false, null],  // an approved portal framed by another site
    [{ managed: [PORTAL] }, OTHER, PORTAL, false, null],  // another site framed by the portal
    [{ managed: [PORTAL], user: [OTHER] }, PORTAL, OTHER, true, null],
    [{ managed: [PORTAL], user: [MINE], allowUserApprovals: false }, MINE, MINE, false, 'administrator'],
    [{ managed: [PORTAL], user: [MINE], allowUserApprovals: false }, PORTAL, PORTAL, true, null],
    [{ user: [PLAIN] }, PLAIN, PLAIN, true, null],
    [{ managed: [PLAIN], allowPlainHttp: false }, PLAIN, PLAIN, false, 'plain-http'],
    [{ managed: ['http://127.0.0.1:8000'], allowPlainHttp: false }, 'http://127.0.0.1:8000', 'http://127.0.0.1:8000', true, null],
    [{ managed: [PORTAL] }, PORTAL, 'null', false, null],  // a page of no origin (a file, a data: URL)
  ];
  for (const [settings, origin, top, runs, refusal] of rows) {
    const approvals = new Approvals(settings);
    const name = `${JSON.stringify(settings)} ${origin} in ${top}`;
    assert.strictEqual(approvals.runs(origin, top), runs, name);
    assert.strictEqual(approvals.refusal(origin), refusal, name);
  }
});

test('approvals: the list that runs (what pages see in navigator) leaves out what the administrator refuses', () => {
  const approvals = new Approvals({ managed: [PORTAL, PLAIN], user: [MINE, PORTAL], allowPlainHttp: false });
  assert.deepStrictEqual(approvals.list(), [MINE, PORTAL]);
  assert.deepStrictEqual(new Approvals({ managed: [PORTAL], user: [MINE], allowUserApprovals: false }).list(), [PORTAL]);
  assert.deepStrictEqual(new Approvals({ managed: ['x'], allowUserApprovals: 'no' }).userApprovals, true);  // only false says no
});

test('waiting entries: the page named when it is another, and the refusal of either origin', () => {
  const approvals = new Approvals({ managed: [PORTAL], allowUserApprovals: true, allowPlainHttp: false });
  assert.deepStrictEqual(waitingEntry(approvals, MINE, MINE), { origin: MINE, top: null, refusal: null });
  assert.deepStrictEqual(waitingEntry(approvals, PORTAL, PLAIN), { origin: PORTAL, top: PLAIN, refusal: 'plain-http' });
  assert.deepStrictEqual(waitingEntry(new Approvals({ allowUserApprovals: false }), MINE, OTHER),
                         { origin: MINE, top: OTHER, refusal: 'administrator' });
});
