// Whether passway-host and the plug-in are there, as the last host said (kept for the browser's session),
// and what follows from it: the toolbar button's badge and title for every tab, and, on approved portal
// origins only, the plug-in shown to the page's own scripts in navigator.plugins and navigator.mimeTypes
// (plugin-shim.js, registered for those origins; it reads what the plug-in reported from a Server-Timing
// entry that a session rule adds to their documents). Nothing of it shows on any other origin.
import { approvedOrigins } from './approval.js';
import { describe, HOST_NAME, PROTOCOL_VERSION, statusOfDisconnect, statusOfMessage } from './host-status.js';

const STATUS_KEY = 'hostStatus';
const SHIM_ID = 'passway-plugin-shim';
const TIMING_NAME = 'passway-plugin';
const PROBE_MS = 20000;  // a host that says nothing for this long has failed

export async function hostStatus() {
  return (await chrome.storage.session.get(STATUS_KEY))[STATUS_KEY] ?? null;
}

// Records what a host told; applies it when it changed.
export async function setHostStatus(status) {
  if (JSON.stringify(await hostStatus()) === JSON.stringify(status)) return;
  await chrome.storage.session.set({ [STATUS_KEY]: status });
  await applyPresence();
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
    port.onDisconnect.addListener(() => finish(statusOfDisconnect(chrome.runtime.lastError?.message)));
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

async function registerShim(origins) {
  await chrome.scripting.unregisterContentScripts({ ids: [SHIM_ID] }).catch(() => {});
  if (!origins.length) return;
  const script = { id: SHIM_ID, js: ['plugin-shim.js'], runAt: 'document_start', world: 'MAIN', allFrames: true,
                   persistAcrossSessions: false };
  try {
    await chrome.scripting.registerContentScripts([{ ...script, matches: origins.map((o) => `${o}/*`) }]);
  } catch {
    // A browser whose match patterns take no port: the hosts, any port (the rule above keeps the port).
    const hosts = origins.map((o) => { const url = new URL(o); return `${url.protocol}//${url.hostname}/*`; });
    await chrome.scripting.registerContentScripts([{ ...script, matches: [...new Set(hosts)] }]);
  }
}

async function apply() {
  const status = await hostStatus();
  const { badge, title } = describe(status);
  await Promise.all([
    chrome.action.setBadgeText({ text: badge }),
    chrome.action.setBadgeBackgroundColor({ color: '#c5221f' }),
    chrome.action.setTitle({ title }),
  ]);
  const { managed, user } = await approvedOrigins();
  const origins = status?.state === 'ready' ? [...new Set([...managed, ...user])] : [];
  const { name, description, filename, mimeTypes } = status?.plugin ?? {};
  const value = encodeURIComponent(JSON.stringify({ name, description, filename, mimeTypes }));
  const existing = await chrome.declarativeNetRequest.getSessionRules();
  await chrome.declarativeNetRequest.updateSessionRules({
    removeRuleIds: existing.map((rule) => rule.id),
    addRules: origins.map((origin, index) => timingRule(index + 1, origin, value)),
  });
  await registerShim(origins);
}

// Brings the button, the rules and the registered script in line with the status and the approved origins.
// One at a time, in the order asked.
let applying = Promise.resolve();
export function applyPresence() {
  applying = applying.then(apply).catch((error) => console.warn('passway: cannot apply the host status:', error));
  return applying;
}
