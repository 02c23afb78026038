'use strict';
// Finds the plug-in's elements in this frame (<embed> and <object> of the plug-in's type, present at load
// or added later) and reports to the background each one that appears, with its attributes in document
// order, and each one that goes away. Runs the package downloads the background asks for
// (content-fetch.js). Talks to the background over one port, opened when the first element appears.

const PLUGIN_TYPE = 'application/x-orvane-sslvpn';

const tracked = new Map();  // element -> its key in this frame
const fetches = new PackageFetches();
let nextKey = 1;
let port = null;

function isPluginElement(node) {
  return node.nodeType === Node.ELEMENT_NODE && (node.localName === 'embed' || node.localName === 'object') &&
    (node.getAttribute('type') ?? '').trim().toLowerCase() === PLUGIN_TYPE;
}

function announce(element, key) {
  const attributes = Array.from(element.attributes, (attribute) => [attribute.name, attribute.value]);
  channel().postMessage({ op: 'appear', key, attributes });
}

function appear(element) {
  const key = nextKey++;
  tracked.set(element, key);
  announce(element, key);
}

function vanish(element) {
  const key = tracked.get(element);
  tracked.delete(element);
  port?.postMessage({ op: 'vanish', key });
}

// An element counts while it is in the document and of the plug-in's type.
function review(element) {
  const wanted = element.isConnected && isPluginElement(element);
  if (wanted && !tracked.has(element)) appear(element);
  else if (!wanted && tracked.has(element)) vanish(element);
}

function scan(root) {
  if (root.nodeType !== Node.ELEMENT_NODE && root.nodeType !== Node.DOCUMENT_NODE) return;
  if (root.nodeType === Node.ELEMENT_NODE) review(root);
  for (const element of root.querySelectorAll('embed, object')) review(element);
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
  if (event.persisted) scan(document);
});

new MutationObserver((mutations) => {
  for (const element of tracked.keys()) {
    if (!element.isConnected) vanish(element);
  }
  for (const mutation of mutations) {
    if (mutation.type === 'attributes') review(mutation.target);
    else for (const node of mutation.addedNodes) scan(node);
  }
}).observe(document, { childList: true, subtree: true, attributes: true, attributeFilter: ['type'] });
scan(document);
