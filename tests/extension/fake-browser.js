// A small stand-in for the browser APIs the background uses: storage areas, the toolbar button, native
// ports, frame ports, script injection and the rules. Install it as globalThis.chrome before the
// background's modules are imported; every call is recorded for the tests to read.

function event() {
  const listeners = [];
  return { addListener: (listener) => listeners.push(listener), fire: (...args) => listeners.forEach((l) => l(...args)) };
}

function storageArea(fake, name, values = {}) {
  return {
    values,
    async get(keys) {
      if (keys === null || keys === undefined) return { ...values };
      const out = {};
      for (const key of [].concat(keys)) if (key in values) out[key] = values[key];
      return out;
    },
    async set(items) {
      Object.assign(values, items);
      fake.changed(name, items);
    },
    async remove(keys) {
      for (const key of [].concat(keys)) delete values[key];
    },
  };
}

globalThis.navigator ??= { userAgent: 'Mozilla/5.0 (a test)' };  // Node 20 has none

export class FakeBrowser {
  constructor({ managed = {}, local = {} } = {}) {
    this.natives = [];        // native ports opened, in order
    this.injections = [];     // executeScript calls: {target, calls}
    this.answer = (calls) => calls.map(([, args]) => ({ kind: 'string', value: `answer to ${args[0]}` }));
    this.badges = new Map();  // tab id (or 'all') -> {text, title}
    this.storageChanged = event();
    const self = this;
    const badge = (tabId) => {
      const key = tabId ?? 'all';
      if (!self.badges.has(key)) self.badges.set(key, {});
      return self.badges.get(key);
    };
    this.chrome = {
      runtime: {
        id: 'passway', lastError: undefined, getManifest: () => ({ version: '1.0' }),
        connectNative: () => {
          const port = { sent: [], disconnected: false, onMessage: event(), onDisconnect: event(),
                         postMessage: (message) => port.sent.push(structuredClone(message)),
                         disconnect: () => { port.disconnected = true; } };
          self.natives.push(port);
          return port;
        },
      },
      storage: {
        managed: storageArea(this, 'managed', managed),
        local: storageArea(this, 'local', local),
        session: storageArea(this, 'session'),
        onChanged: this.storageChanged,
      },
      action: {
        setBadgeText: async ({ tabId, text }) => { badge(tabId).text = text; },
        setBadgeBackgroundColor: async () => {},
        setTitle: async ({ tabId, title }) => { badge(tabId).title = title; },
        getTitle: async ({ tabId }) => badge(tabId).title ?? 'Passway',
      },
      scripting: {
        executeScript: async ({ target, args: [calls] }) => {
          self.injections.push({ target, calls });
          return [{ result: self.answer(calls) }];
        },
        getRegisteredContentScripts: async () => [],
        registerContentScripts: async () => {},
        updateContentScripts: async () => {},
        unregisterContentScripts: async () => {},
      },
      declarativeNetRequest: { getDynamicRules: async () => [], updateDynamicRules: async () => {} },
    };
  }

  changed(area, items) {
    const changes = Object.fromEntries(Object.keys(items).map((key) => [key, { newValue: items[key] }]));
    this.storageChanged.fire(changes, area);
  }

  // A frame's port as the content script of a document at `url` in tab `tabId` opens it.
  framePort({ tabId = 7, origin, top = origin, frameId = 0, documentId = `doc-${origin}-${frameId}` }) {
    const port = { sent: [], onMessage: event(), onDisconnect: event(),
                   sender: { id: 'passway', origin, frameId, documentId, tab: { id: tabId, url: `${top}/page.html` } },
                   postMessage: (message) => port.sent.push(message) };
    return port;
  }
}

// Lets every pending promise and timer of the code under test run.
export function settle() {
  return new Promise((resolve) => setTimeout(resolve, 5));
}
