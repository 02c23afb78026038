// Which portal origins may use the plug-in, which wait for the user's answer, and which the administrator
// refuses.
//
// An element runs only when the origin of its frame and the origin of its tab's top-level page are both
// approved: an approved portal framed by another site waits until that site is approved too.
// Approved: the administrator's list (managed storage `approvedOrigins`, see schema.json) and the user's
// (local storage `approvedOrigins`), unless the administrator's `allowUserApprovals` is false: then the
// administrator's list alone. A plain http: origin other than loopback is refused everywhere when the
// administrator's `allowPlainHttp` is false; otherwise the popup warns before the user approves one.
// Waiting: per tab, the elements' origins that wait, in session storage under `waiting:TAB`, where the popup
// finds them; the tab's badge and title say so (tab-badge.js). Shared by the background and the popup.
import { showTab, WAITING_PREFIX } from './tab-badge.js';

const APPROVED_KEY = 'approvedOrigins';

// An http(s) URL or origin text, parsed; null for anything else (an opaque origin, "null", is no URL).
function webUrl(text) {
  try {
    const url = new URL(text);
    return url.protocol === 'http:' || url.protocol === 'https:' ? url : null;
  } catch {
    return null;
  }
}

// The origin of an http(s) URL or origin text, or null.
export function portalOrigin(text) {
  return webUrl(text)?.origin ?? null;
}

// True for an http: origin whose traffic may leave the machine (anything but loopback).
export function isPlainHttp(origin) {
  const url = webUrl(origin);
  if (url?.protocol !== 'http:') return false;
  const host = url.hostname;
  return !(host === 'localhost' || host.endsWith('.localhost') || host === '[::1]' || /^127\.\d+\.\d+\.\d+$/.test(host));
}

// What the administrator and the user approved, and the administrator's rules.
export class Approvals {
  constructor({ managed = [], user = [], allowUserApprovals = true, allowPlainHttp = true } = {}) {
    this.managed = new Set(managed);
    this.user = new Set(user);
    this.userApprovals = allowUserApprovals !== false;
    this.plainHttp = allowPlainHttp !== false;
  }

  // Why the user cannot approve `origin` ('administrator': only the administrator's list runs; 'plain-http':
  // the administrator refuses plain http), or null when the user may.
  refusal(origin) {
    if (!this.plainHttp && isPlainHttp(origin)) return 'plain-http';
    if (!this.userApprovals && !this.managed.has(origin)) return 'administrator';
    return null;
  }

  allows(origin) {
    if (!origin || this.refusal(origin)) return false;
    return this.managed.has(origin) || (this.userApprovals && this.user.has(origin));
  }

  // Whether an element of a frame of `origin` in a page of `top` runs.
  runs(origin, top) {
    return this.allows(origin) && this.allows(top);
  }

  // Every origin that runs by itself, sorted.
  list() {
    return [...new Set([...this.managed, ...this.user])].filter((origin) => this.allows(origin)).sort();
  }
}

async function stored(area) {
  return area.get([APPROVED_KEY, 'allowUserApprovals', 'allowPlainHttp']).catch(() => ({}));
}

function origins(value) {
  return Array.isArray(value) ? value.map(portalOrigin).filter(Boolean) : [];
}

// The approvals now; null when the administrator's policy did not come within `managedWait` ms (Chromium
// answers it only once it has loaded the policy).
export async function readApprovals(managedWait = Infinity) {
  const late = new Promise((resolve) => {
    if (managedWait !== Infinity) setTimeout(() => resolve(null), managedWait);
  });
  const [policy, user] = await Promise.all([Promise.race([stored(chrome.storage.managed), late]),
                                            stored(chrome.storage.local)]);
  if (policy === null) return null;
  return new Approvals({ managed: origins(policy[APPROVED_KEY]), user: origins(user[APPROVED_KEY]),
                         allowUserApprovals: policy.allowUserApprovals, allowPlainHttp: policy.allowPlainHttp });
}

// The user's approval of these origins (the popup's "Allow").
export async function approve(list) {
  const user = origins((await stored(chrome.storage.local))[APPROVED_KEY]);
  const added = list.filter((origin) => !user.includes(origin));
  if (added.length) await chrome.storage.local.set({ [APPROVED_KEY]: [...user, ...added] });
}

// The user takes an approval back (the popup's "Remove").
export async function unapprove(origin) {
  const user = origins((await stored(chrome.storage.local))[APPROVED_KEY]);
  await chrome.storage.local.set({ [APPROVED_KEY]: user.filter((o) => o !== origin) });
}

// True when a storage change may have changed the approvals.
export function approvalsChanged(changes, area) {
  return (area === 'local' && APPROVED_KEY in changes) || area === 'managed';
}

// The waiting entry of an element: {origin, top (when another), refusal (the administrator's, or null)}.
export function waitingEntry(approvals, origin, top) {
  const entry = { origin, top: top === origin ? null : top, refusal: approvals.refusal(origin) };
  if (!entry.refusal && entry.top) entry.refusal = approvals.refusal(top);
  return entry;
}

// Records what waits in the tab, and shows it on the tab's button.
export async function setWaiting(tabId, entries) {
  const key = WAITING_PREFIX + tabId;
  if (entries.length) await chrome.storage.session.set({ [key]: entries });
  else await chrome.storage.session.remove(key);
  await showTab(tabId);
}

// Map tab id -> the entries waiting there.
export async function waitingEntries() {
  const all = await chrome.storage.session.get(null);
  const waiting = new Map();
  for (const [key, entries] of Object.entries(all)) {
    if (key.startsWith(WAITING_PREFIX)) waiting.set(Number(key.slice(WAITING_PREFIX.length)), entries);
  }
  return waiting;
}
