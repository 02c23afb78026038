'use strict';
// Finds the elements of this frame that the plug-in serves (embedding.js: present at load or added later)
// and reports to the background each one that appears, with the parameters an NPAPI browser would hand
// the plug-in, and each one that goes away. Runs the package downloads the background asks for
// (content-fetch.js). Talks to the background over one port, opened when the first element appears.

const tracked = new Map();  // element -> its key in this frame
const watched = new Set();  // the frame's <embed> and <object> elements: their size and attribute changes are watched
const fetches = new PackageFetches();
let nextKey = 1;
let port = null;

// Whether the browser lays the element out: an NPAPI browser makes no instance for an element with no box
// (display: none, or fallback content that the browser does not show).
function isShown(element) {
  return typeof element.checkVisibility === 'function' ? element.checkVisibility() : true;
}

function announce(element, key) {
  channel().postMessage({ op: 'appear', key, attributes: parametersOf(element) });
}

function watch(element) {
  if (watched.has(element)) return;
  if (!watched.size) observeAttributes(true);
  watched.add(element);
  sizes.observe(element);
}

function unwatch(element) {
  if (!watched.delete(element)) return;
  sizes.unobserve(element);
  if (!watched.size) observeAttributes(false);
}

function appear(element) {
  const key = nextKey++;
  tracked.set(element, key);
  watch(element);
  announce(element, key);
}

function vanish(element) {
  const key = tracked.get(element);
  tracked.delete(element);
  port?.postMessage({ op: 'vanish', key });
}

// Brings the instances in line with the page: the elements the plug-in serves now, in document order.
// Those it no longer serves go first, then those that changed (`renewed`: their instance is made again
// with the new parameters, as an NPAPI browser does), then those that are new.
function review(renewed = new Set()) {
  const candidates = document.querySelectorAll('embed, object');
  const wanted = new Set();
  for (const element of candidates) {
    if (servedElement(element, isShown)) wanted.add(element);
  }
  for (const element of [...tracked.keys()]) {
    if (!wanted.has(element) || !element.isConnected) vanish(element);
  }
  for (const element of [...watched]) {
    if (!element.isConnected) unwatch(element);
  }
  for (const element of candidates) watch(element);  // it may be laid out, or become ours, later
  for (const element of wanted) {
    if (tracked.has(element) && renewed.has(element)) vanish(element);
    if (!tracked.has(element)) appear(element);
  }
}

// Whether a node added or removed is or holds an <embed> or an <object>.
function mayMatter(node) {
  if (node.nodeType !== Node.ELEMENT_NODE) return false;
  const name = node.localName;
  return name === 'embed' || name === 'object' ||
    (node.firstElementChild !== null && node.querySelector('embed, object') !== null);
}

// Whether a batch of changes needs a review. A page with no <embed> and no <object> costs a look at the
// nodes it adds and removes; attribute changes are observed only while the frame has such an element.
function needsReview(mutations) {
  for (const mutation of mutations) {
    if (mutation.type === 'attributes') return true;
    if (watched.has(mutation.target)) return true;  // an <object>'s children
    for (const node of mutation.addedNodes) if (mayMatter(node)) return true;
    if (watched.size) for (const node of mutation.removedNodes) if (mayMatter(node)) return true;
  }
  return false;
}

// An element's instance is made again when an <object>'s children change (<param> elements added or
// removed, even text) or when what it loads (data, src) changes; other attribute changes leave it be.
function changedElements(mutations) {
  const renewed = new Set();
  for (const mutation of mutations) {
    const target = mutation.target;
    if (!tracked.has(target)) continue;
    if (mutation.type === 'childList' && target.localName === 'object') renewed.add(target);
    else if (mutation.attributeName === 'data' || mutation.attributeName === 'src') renewed.add(target);
  }
  return renewed;
}

function fromBackground(message) {
  if (message.op === 'fetch') fetches.start(port, message.request, message.url);
  else if (message.op === 'cancel') fetches.cancel(message.request);
}

function channel() {
  if (port) return port;
  port = chrome.runtime.connect({ name: 'passway-frame' });
  port.onMessage.addListener(fromBackground);
  port.onDisconnect.addListener(() => {
    // The background restarted (or the extension went away): its downloads are void; elements still
    // here are announced again to the new one.
    port = null;
    fetches.cancelAll();
    if (tracked.size) setTimeout(reconnect, 500);
  });
  return port;
}

function reconnect() {
  if (!chrome.runtime?.id || port || !tracked.size) return;  // the extension was removed, or already back
  for (const [element, key] of tracked) announce(element, key);
}

// Leaving the page ends its plug-in instances, as a browser ends a plug-in's instances when their page goes,
// even when the browser keeps the page in its back-forward cache (Firefox keeps the extension's ports of
// such a page open). Closing the port ends them all at once. A page that comes back announces them again.
addEventListener('pagehide', () => {
  if (!port) return;
  port.disconnect();
  port = null;
  fetches.cancelAll();
  tracked.clear();
});
addEventListener('pageshow', (event) => {
  if (event.persisted) review();
});

// Style changes that hide or show an element reach the page through its size.
const sizes = new ResizeObserver(() => review());
const changes = new MutationObserver((mutations) => {
  if (needsReview(mutations)) review(changedElements(mutations));
});
function observeAttributes(on) {
  changes.observe(document, on
    ? { childList: true, subtree: true, attributes: true, attributeFilter: ['type', 'data', 'src', 'style', 'class', 'hidden'] }
    : { childList: true, subtree: true });
}
observeAttributes(false);
review();
