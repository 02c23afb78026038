// The background: one TabSession per tab that has plug-in elements. Content scripts connect with one port
// per frame; a closed tab ends its session and its host; a new approval reaches every session and the
// origins that see the plug-in (presence.js).
import { approvalsChanged } from './approval.js';
import { applyPresence, hostStatus, probeHost } from './presence.js';
import { forgetTab } from './tab-badge.js';
import { TabSession } from './tab-session.js';

const sessions = new Map();  // tab id -> TabSession

chrome.runtime.onConnect.addListener((port) => {
  const tabId = port.sender?.tab?.id;
  if (port.name !== 'passway-frame' || tabId === undefined || port.sender.id !== chrome.runtime.id) return;
  let session = sessions.get(tabId);
  if (!session) {
    session = new TabSession(tabId);
    sessions.set(tabId, session);
  }
  session.attachFrame(port);
});

chrome.tabs.onRemoved.addListener((tabId) => {
  const session = sessions.get(tabId);
  sessions.delete(tabId);
  if (session) session.close();
  else forgetTab(tabId);  // a session of a service worker that has since restarted
});

chrome.storage.onChanged.addListener((changes, area) => {
  if (!approvalsChanged(changes, area)) return;
  applyPresence();
  for (const session of sessions.values()) session.approvalsChanged();
});

// A new browser session asks a host once whether it and the plug-in are there; a background started again
// in the same session applies what it knows. Without the start-up listener a browser that starts on a
// profile where the extension is installed would not run this background until a page needs it.
function learnHostStatus() {
  hostStatus().then((status) => (status ? applyPresence() : probeHost()));
}
chrome.runtime.onStartup.addListener(learnHostStatus);
learnHostStatus();
