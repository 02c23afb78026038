// The action popup: what is wrong with passway-host or the plug-in, when something is, and what to
// install; then the portal origins that wait for approval in the active tab (or, opened as
// popup.html?origin=ORIGIN, that one origin while it waits in any tab) with "Allow this portal".
import { approve, portalOrigin, waitingOrigins } from './approval.js';
import { describe } from './host-status.js';
import { hostStatus } from './presence.js';

const asked = portalOrigin(new URLSearchParams(location.search).get('origin') ?? '');
const allowedHere = new Set();  // approved from this popup: shown as allowed, not as waiting

async function originsToShow() {
  const waiting = await waitingOrigins();
  if (asked) return [...waiting.values()].some((origins) => origins.includes(asked)) ? [asked] : [];
  const [tab] = await chrome.tabs.query({ active: true, currentWindow: true });
  return waiting.get(tab?.id) ?? [];
}

function portalRow(origin) {
  const row = document.createElement('div');
  row.className = 'portal';
  const name = document.createElement('div');
  name.className = 'origin';
  name.textContent = origin;
  const text = document.createElement('div');
  row.append(name, text);
  if (allowedHere.has(origin)) {
    text.textContent = 'Allowed: the page connects now.';
    return row;
  }
  text.textContent = 'This page wants to use the VPN plug-in. Allow it only for your own VPN portal.';
  const button = document.createElement('button');
  button.textContent = 'Allow this portal';
  button.dataset.origin = origin;
  button.addEventListener('click', async () => {
    button.disabled = true;
    allowedHere.add(origin);
    await approve(origin);
    render();
  });
  row.append(button);
  return row;
}

// The host's status: the explanation of a problem, or the plug-in that serves.
function hostRows(status) {
  const { explanation } = describe(status);
  const lines = explanation.length ? explanation
    : status?.state === 'ready' ? [`${status.plugin.description} (passway-host ${status.hostVersion})`] : [];
  return lines.map((line) => {
    const row = document.createElement('p');
    row.textContent = line;
    return row;
  });
}

let renders = 0;
async function render() {
  const mine = ++renders;
  const [waiting, status] = await Promise.all([originsToShow(), hostStatus()]);
  const origins = new Set([...waiting, ...allowedHere]);
  if (mine !== renders) return;  // a later render has newer data
  const host = document.getElementById('host');
  host.replaceChildren(...hostRows(status));
  host.className = status && status.state !== 'ready' ? 'problem' : '';
  document.getElementById('portals').replaceChildren(...[...origins].map(portalRow));
  document.getElementById('none').hidden = origins.size > 0;
}

chrome.storage.onChanged.addListener(render);
render();
