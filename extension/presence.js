// Whether passway-host and the plug-in are there, as the last host said (kept for the browser's session),
// and what follows from it: the toolbar button's badge and title for every tab, and, on approved portal
// origins only, the plug-in shown to the page's own scripts in navigator.plugins and navigator.mimeTypes
// (plugin-shim.js, registered for those origins; it reads what the plug-in reported from a Server-Timing
// entry that a rule adds to their documents). Nothing of it shows on any other origin. The script and the
// rules outlast the browser session, so that the first page of the next session sees the plug-in before
// that session's host has been asked; the answer then confirms or removes them.
import { readApprovals } from './approval.js';
import { ENDED_PREFIX, hostEndedText, PROBLEM_BADGE_COLOR, showTab } from './tab-badge.js';
import { describe, HOST_NAME, PROTOCOL_VERSION, statusOfDisconnect, statusOfMessage } from './host-status.js';

const STATUS_KEY = 'hostStatus';
const APPLIED_KEY = 'presenceApplied';  // the origins and the description last applied
const SHIM_ID = 'passway-plugin-shim';
const TIMING_NAME = 'passway-plugin';
const PROBE_MS = 20000;  // a host that says nothing for this long has failed
const POLICY_WAIT_MS = 2000;  // how long one application waits for the administrator's list
const POLICY_TRIES = 5;  // applications that wait for it before the next approved element brings it

// A tab's host ended while it served (`session`: whether a VPN session ran on it), or (null) a new host
// serves the tab: the tab's button shows `!` and says what happened, and so does the popup.
export async function setHostEnded(tabId, session) {
  const key = ENDED_PREFIX + tabId;
  if (session === null) {
    if (!((await chrome.storage.session.get(key))[key])) return;
    await chrome.storage.session.remove(key);
  } else {
    await chrome.storage.session.set({ [key]: { session } });
  }
  await showTab(tabId);
}

// What the user is told of a tab whose host went away, or null.
export async function hostEndedIn(tabId) {
  const ended = (await chrome.storage.session.get(ENDED_PREFIX + tabId))[ENDED_PREFIX + tabId];
  return ended ? hostEndedText(ended.session) : null;
}

export async function hostStatus() {
  return (await chrome.storage.session.get(STATUS_KEY))[STATUS_KEY] ?? null;
}

// Records what a host told; applies it when it changed.
export async function setHostStatus(status) {
  if (JSON.stringify(await hostStatus()) === JSON.stringify(status)) return;
  await chrome.storage.session.set({ [STATUS_KEY]: status });
  await applyPresence();
}

// Why a native port closed: Firefox says it in the port's `error`, Chromium in runtime.lastError.
export function disconnectReason(port) {
  return port.error?.message ?? chrome.runtime.lastError?.message;
}

// Starts a host once, only to learn the status (a new browser session knows none yet).
let probing = null;
export function probeHost() {
  probing ??= new Promise((resolve) => {
    const port = chrome.runtime.connectNative(HOST_NAME);
    let timer = null;
    const finish = (status) => {
      if (timer === null) return;
      clearTimeout(timer);
      timer = null;
      try {
        port.disconnect();  // the host ends with its input
      } catch {}
      resolve(setHostStatus(status));
    };
    timer = setTimeout(() => finish({ state: 'failed', detail: 'the host did not answer' }), PROBE_MS);
    port.onMessage.addListener((message) => {
      const status = statusOfMessage(message);
      if (status) finish(status);
    });
    port.onDisconnect.addListener(() => finish(statusOfDisconnect(disconnectReason(port))));
    port.postMessage({ op: 'hello', version: PROTOCOL_VERSION, userAgent: navigator.userAgent });
  }).finally(() => {
    probing = null;
  });
  return probing;
}

function escapeRegex(text) {
  return text.replace(/[.*+?^${}()|[\]\\]/g, '\\$&');
}

// The rule that adds the plug-in's description to the documents of one approved origin.
function timingRule(id, origin, description) {
  return {
    id, priority: 1,
    action: { type: 'modifyHeaders', responseHeaders: [
      { header: 'Server-Timing', operation: 'append', value: `${TIMING_NAME};desc="${description}"` }] },
    condition: { regexFilter: `^${escapeRegex(origin)}/`, resourceTypes: ['main_frame', 'sub_frame'] },
  };
}

// Registers the page script for the hosts of these origins, or changes the registration in place (a page
// loading meanwhile finds it either way), or removes it. By host, any port: Firefox takes a match pattern
// with a port but never matches it. The timing rule, which carries the values, keeps to the exact origins.
async function registerShim(origins) {
  const [registered] = await chrome.scripting.getRegisteredContentScripts({ ids: [SHIM_ID] });
  const matches = [...new Set(origins.map((o) => { const url = new URL(o); return `${url.protocol}//${url.hostname}/*`; }))];
  if (!matches.length) {
    if (registered) await chrome.scripting.unregisterContentScripts({ ids: [SHIM_ID] });
  } else if (registered) {
    await chrome.scripting.updateContentScripts([{ id: SHIM_ID, matches }]);
  } else {
    await chrome.scripting.registerContentScripts([{ id: SHIM_ID, matches, js: ['plugin-shim.js'],
      runAt: 'document_start', world: 'MAIN', allFrames: true, persistAcrossSessions: true }]);
  }
}

let policyTries = 0;
async function apply() {
  const status = await hostStatus();
  const { badge, title } = describe(status);
  await Promise.all([
    chrome.action.setBadgeText({ text: badge }),
    chrome.action.setBadgeBackgroundColor({ color: PROBLEM_BADGE_COLOR }),
    chrome.action.setTitle({ title }),
  ]);
  const approvals = await readApprovals(POLICY_WAIT_MS);
  if (approvals === null) {
    // The policy is not loaded yet (Chromium answers a read made early in its session only once something
    // else wakes it, such as an element's approval, which applies this again): what is in place stays, the
    // last session's, and this is tried again a few times.
    if (++policyTries < POLICY_TRIES) setTimeout(applyPresence, POLICY_WAIT_MS);
    return;
  }
  policyTries = 0;
  const origins = status?.state === 'ready' ? approvals.list() : [];
  const { name, description, filename, mimeTypes } = status?.plugin ?? {};
  const value = encodeURIComponent(JSON.stringify({ name, description, filename, mimeTypes }));
  const applied = JSON.stringify([origins, value]);
  if (applied === (await chrome.storage.session.get(APPLIED_KEY))[APPLIED_KEY]) return;  // nothing changed
  const existing = await chrome.declarativeNetRequest.getDynamicRules();
  await chrome.declarativeNetRequest.updateDynamicRules({
    removeRuleIds: existing.map((rule) => rule.id),
    addRules: origins.map((origin, index) => timingRule(index + 1, origin, value)),
  });
  await registerShim(origins);
  await chrome.storage.session.set({ [APPLIED_KEY]: applied });
}

// Brings the button, the rules and the registered script in line with the status and the approved origins.
// One at a time, in the order asked.
let applying = Promise.resolve();
export function applyPresence() {
  applying = applying.then(apply).catch((error) => console.warn('passway: cannot apply the host status:', error));
  return applying;
}
