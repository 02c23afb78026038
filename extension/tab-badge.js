// One tab's own badge and title, made from all that is kept for the tab in session storage, so that one
// notice never wipes another: elements that wait for the user (`waiting:TAB`: a blue `?`), a host that went
// away while it served the tab (`ended:TAB`: a red `!` until a new host serves it), elements the
// administrator refuses (a title only). With none of these the tab shows what the whole button shows.

export const WAITING_PREFIX = 'waiting:';
export const ENDED_PREFIX = 'ended:';
// The badge's colours: red for what is wrong with the host, blue for a tab that waits for the user.
export const PROBLEM_BADGE_COLOR = '#c5221f';
const WAITING_BADGE_COLOR = '#1a5fb4';

// What the user is told of a tab whose host went away (`session`: whether a VPN session ran on it).
export function hostEndedText(session) {
  return session
    ? 'The VPN plug-in\'s helper program stopped unexpectedly, and the VPN session ended. Reload the page to connect again.'
    : 'The VPN plug-in\'s helper program stopped unexpectedly. Reload the page to start it again.';
}

function entryText({ origin, top }) {
  return top ? `${origin} (inside ${top})` : origin;
}

// Shows on the tab's button what is kept for it.
export async function showTab(tabId) {
  const kept = await chrome.storage.session.get([WAITING_PREFIX + tabId, ENDED_PREFIX + tabId]);
  const entries = kept[WAITING_PREFIX + tabId] ?? [];
  const ended = kept[ENDED_PREFIX + tabId];
  const askable = entries.filter((entry) => !entry.refusal);
  const refused = entries.filter((entry) => entry.refusal);
  const parts = [];
  if (ended) parts.push(hostEndedText(ended.session));
  if (askable.length) parts.push(`${askable.map(entryText).join(', ')} wants to use the VPN plug-in. Click to allow it.`);
  if (refused.length) parts.push(`Your administrator does not allow ${refused.map(entryText).join(', ')} to use the VPN plug-in.`);
  const text = askable.length ? '?' : ended ? '!' : null;
  await Promise.all([
    chrome.action.setBadgeText({ tabId, text }),
    chrome.action.setBadgeBackgroundColor({ tabId, color: askable.length ? WAITING_BADGE_COLOR : PROBLEM_BADGE_COLOR }),
    setTabTitle(tabId, parts.length ? `Passway: ${parts.join(' ')}` : null),
  ]).catch(() => {});  // the tab is gone
}

// The tab closed: all that was kept for it goes.
export async function forgetTab(tabId) {
  await chrome.storage.session.remove([WAITING_PREFIX + tabId, ENDED_PREFIX + tabId]);
}

// A tab's own title, or (null) the whole button's again: Firefox takes null for that, Chromium only a text.
async function setTabTitle(tabId, title) {
  try {
    await chrome.action.setTitle({ tabId, title });
  } catch {
    if (title === null) await chrome.action.setTitle({ tabId, title: await chrome.action.getTitle({}) });
  }
}
