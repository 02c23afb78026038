// Which portal origins may use the plug-in, and which wait for the user's answer.
//
// Approved: the administrator's list (managed storage, `approvedOrigins`, see schema.json) and the user's
// (local storage, `approvedOrigins`). Waiting: per tab, the origins whose elements wait for approval, in
// session storage under `waiting:TAB`, where the popup finds them; the tab's badge and title say so.
// Shared by the background and the popup.

const APPROVED_KEY = 'approvedOrigins';
const WAITING_PREFIX = 'waiting:';

// The origin of an http(s) URL or origin text, or null.
export function portalOrigin(text) {
  try {
    const url = new URL(text);
    return url.protocol === 'http:' || url.protocol === 'https:' ? url.origin : null;
  } catch {
    return null;
  }
}

async function originList(area) {
  const stored = await area.get(APPROVED_KEY).catch(() => ({}));
  const list = Array.isArray(stored[APPROVED_KEY]) ? stored[APPROVED_KEY] : [];
  return list.map(portalOrigin).filter(Boolean);
}

// The administrator's and the user's approved origins. `managed` is null when the administrator's list did
// not come within `managedWait` ms (Chromium answers it only once it has loaded the policy).
export async function approvedOrigins(managedWait = Infinity) {
  const late = new Promise((resolve) => {
    if (managedWait !== Infinity) setTimeout(() => resolve(null), managedWait);
  });
  const [managed, user] = await Promise.all([Promise.race([originList(chrome.storage.managed), late]),
                                             originList(chrome.storage.local)]);
  return { managed: managed && new Set(managed), user: new Set(user) };
}

export async function isApproved(origin) {
  const { managed, user } = await approvedOrigins();
  return managed.has(origin) || user.has(origin);
}

// The user's approval (the popup's "Allow this portal").
export async function approve(origin) {
  const user = await originList(chrome.storage.local);
  if (!user.includes(origin)) await chrome.storage.local.set({ [APPROVED_KEY]: [...user, origin] });
}

// True when a storage change may have approved an origin.
export function approvalsChanged(changes, area) {
  return (area === 'local' || area === 'managed') && APPROVED_KEY in changes;
}

export async function setWaiting(tabId, origins) {
  const key = WAITING_PREFIX + tabId;
  if (origins.length) await chrome.storage.session.set({ [key]: origins });
  else await chrome.storage.session.remove(key);
  const waiting = origins.length > 0;
  // A tab that waits shows it; any other shows what the whole button shows (null: the tab's own value goes).
  const title = waiting ? `Passway: ${origins.join(', ')} wants to use the VPN plug-in. Click to allow it.` : null;
  await Promise.all([
    chrome.action.setBadgeText({ tabId, text: waiting ? '?' : null }),
    chrome.action.setTitle({ tabId, title }),
  ]).catch(() => {});  // the tab is gone
}

// The tab closed.
export async function forgetTab(tabId) {
  await chrome.storage.session.remove(WAITING_PREFIX + tabId);
}

// Map tab id -> origins waiting there.
export async function waitingOrigins() {
  const all = await chrome.storage.session.get(null);
  const waiting = new Map();
  for (const [key, origins] of Object.entries(all)) {
    if (key.startsWith(WAITING_PREFIX)) waiting.set(Number(key.slice(WAITING_PREFIX.length)), origins);
  }
  return waiting;
}
