// The action popup: what is wrong with passway-host or the plug-in, when something is, and what to
// install; then the portal origins that wait in the active tab (or, opened as popup.html?origin=ORIGIN,
// that one origin while it waits in any tab), each with "Allow this portal" unless the administrator
// refuses it; then the approved portals, the user's own each with "Remove".
import { approve, isPlainHttp, portalOrigin, readApprovals, unapprove, waitingEntries } from './approval.js';
import { describe } from './host-status.js';
import { hostEndedIn, hostStatus } from './presence.js';

const asked = portalOrigin(new URLSearchParams(location.search).get('origin') ?? '');
const allowedHere = new Map();  // `origin top` -> entry approved from this popup: shown as allowed

const REFUSALS = {
  administrator: 'Your administrator allows only the portals it lists.',
  'plain-http': 'Your administrator does not allow portals over plain http.',
};
const PLAIN_HTTP = 'Not encrypted: anyone on the network between you and this site can change its page.';

async function activeTab() {
  const [tab] = await chrome.tabs.query({ active: true, currentWindow: true });
  return tab?.id;
}

async function entriesToShow() {
  const waiting = await waitingEntries();
  if (asked) {
    const all = [...waiting.values()].flat();
    return all.filter((entry) => entry.origin === asked).slice(0, 1);
  }
  return waiting.get(await activeTab()) ?? [];
}

function element(tag, className, text) {
  const node = document.createElement(tag);
  if (className) node.className = className;
  if (text) node.textContent = text;
  return node;
}

function waitingRow(entry, approvals) {
  const { origin, top, refusal } = entry;
  const row = element('div', 'portal');
  row.append(element('div', 'origin', origin));
  if (top) row.append(element('div', 'top', `inside a page of ${top}`));
  if (allowedHere.has(`${origin} ${top}`)) {
    row.append(element('div', '', 'Allowed: the page connects now.'));
    return row;
  }
  if (refusal) {
    row.append(element('div', 'refused', REFUSALS[refusal]));
    return row;
  }
  const unapproved = [origin, top].filter((o) => o && !approvals.allows(o));
  row.append(element('div', '', top
    ? 'This page, inside another site\'s page, wants to use the VPN plug-in. Allow it only when both are your own VPN portal.'
    : 'This page wants to use the VPN plug-in. Allow it only for your own VPN portal.'));
  for (const o of unapproved.filter(isPlainHttp)) row.append(element('div', 'warning', `${o}: ${PLAIN_HTTP}`));
  const label = unapproved.length > 1 ? 'Allow both' : unapproved[0] === origin ? 'Allow this portal' : 'Allow the site around it';
  const button = element('button', '', label);
  button.dataset.origin = origin;
  button.addEventListener('click', async () => {
    button.disabled = true;
    allowedHere.set(`${origin} ${top}`, entry);
    await approve(unapproved);
    render();
  });
  row.append(button);
  return row;
}

function approvedRow(origin, approvals) {
  const row = element('div', 'approved');
  row.append(element('span', 'origin', origin));
  if (approvals.managed.has(origin)) {
    row.append(element('span', 'note', ' set by your administrator'));
  } else {
    const button = element('button', 'remove', 'Remove');
    button.dataset.remove = origin;
    button.addEventListener('click', async () => {
      button.disabled = true;
      await unapprove(origin);
    });
    row.append(' ', button);
  }
  if (isPlainHttp(origin)) row.append(element('div', 'warning', PLAIN_HTTP));
  return row;
}

// The host's status: what happened to the active tab's host, the explanation of a problem, or the plug-in
// that serves.
function hostRows(status, ended) {
  const { explanation } = describe(status);
  const lines = ended ? [ended, ...explanation] : explanation.length ? explanation
    : status?.state === 'ready' ? [`${status.plugin.description} (passway-host ${status.hostVersion})`] : [];
  return lines.map((line) => element('p', '', line));
}

let renders = 0;
async function render() {
  const mine = ++renders;
  const [entries, status, approvals, ended] = await Promise.all([
    entriesToShow(), hostStatus(), readApprovals(), activeTab().then((tab) => (tab === undefined ? null : hostEndedIn(tab)))]);
  if (mine !== renders) return;  // a later render has newer data
  const host = document.getElementById('host');
  host.replaceChildren(...hostRows(status, ended));
  host.className = ended || (status && status.state !== 'ready') ? 'problem' : '';
  const waiting = [...allowedHere.values(), ...entries.filter((entry) => !allowedHere.has(`${entry.origin} ${entry.top}`) &&
                                                          !approvals.runs(entry.origin, entry.top ?? entry.origin))];
  document.getElementById('portals').replaceChildren(...waiting.map((entry) => waitingRow(entry, approvals)));
  document.getElementById('none').hidden = waiting.length > 0;
  const approved = approvals.list();
  document.getElementById('approved').replaceChildren(...approved.map((origin) => approvedRow(origin, approvals)));
  document.getElementById('approved-title').hidden = approved.length === 0;
}

chrome.storage.onChanged.addListener(render);
render();
