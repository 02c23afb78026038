// A small stand-in for the browser APIs the background uses: storage areas, the toolbar button, native
// ports, frame ports and script injection. Install its `chrome` as globalThis.chrome before the background's
// modules are imported; what the code under test sends is recorded for the tests to read.
const event = () => {
  const listeners = [];
  return { addListener: (l) => listeners.push(l), fire: (...args) => listeners.forEach((l) => l(...args)) };
};
// An API of which only `given` matters to the tests: any other call does nothing and finds nothing.
const idle = (given = {}) => new Proxy(given, { get: (api, name) => api[name] ?? (async () => []) });

function port(extra = {}) {
  const port = { sent: [], onMessage: event(), onDisconnect: event(), ...extra,
                 postMessage: (message) => port.sent.push(structuredClone(message)),
                 disconnect: () => { port.disconnected = true; } };
  return port;
}

const storageArea = (values = {}) => ({
  values,
  get: async (keys) => Object.fromEntries([].concat(keys).filter((key) => key in values).map((key) => [key, values[key]])),
  set: async (items) => { Object.assign(values, items); },
  remove: async (keys) => [].concat(keys).forEach((key) => delete values[key]),
});

globalThis.navigator ??= { userAgent: 'Mozilla/5.0 (a test)' };  // Node 20 has none

export class FakeBrowser {
  natives = [];  // native ports opened, in order
  injections = [];  // executeScript calls: {target, calls}
  badges = new Map();  // tab id, or 'all' for the whole button -> {text, title}
  answer = (calls) => calls.map(() => ({ kind: 'undefined' }));  // what the page's world hands back

  constructor(managed = {}) {
    const badge = (tabId = 'all') => this.badges.get(tabId) ?? this.badges.set(tabId, {}).get(tabId);
    this.chrome = {
      runtime: { id: 'passway', connectNative: () => { this.natives.push(port()); return this.natives.at(-1); } },
      storage: { managed: storageArea(managed), local: storageArea(), session: storageArea() },
      action: idle({ setBadgeText: async ({ tabId, text }) => { badge(tabId).text = text; },
                     setTitle: async ({ tabId, title }) => { badge(tabId).title = title; } }),
      scripting: idle({ executeScript: async ({ target, args: [calls] }) => {
        this.injections.push({ target, calls });
        return [{ result: this.answer(calls) }];
      } }),
      declarativeNetRequest: idle(),
    };
  }

  // The port that the content script of a document of `origin`, in a page of `top`, opens in tab 7.
  framePort({ origin, top = origin, frameId = 0 }) {
    return port({ sender: { id: 'passway', origin, frameId, documentId: `doc${frameId}`,
                            tab: { id: 7, url: `${top}/page.html` } } });
  }
}

// Lets every pending promise and timer of the code under test run.
export const settle = () => new Promise((resolve) => setTimeout(resolve, 5));
