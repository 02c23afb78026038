// The action popup: shows the portal origins that wait for approval in the active tab (or, opened as
// popup.html?origin=ORIGIN, that one origin while it waits in any tab) with "Allow this portal".
import { approve, portalOrigin, waitingOrigins } from './approval.js';

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

let renders = 0;
async function render() {
  const mine = ++renders;
  const origins = new Set([...await originsToShow(), ...allowedHere]);
  if (mine !== renders) return;  // a later render has newer data
  document.getElementById('portals').replaceChildren(...[...origins].map(portalRow));
  document.getElementById('none').hidden = origins.size > 0;
}

chrome.storage.onChanged.addListener(render);
render();
