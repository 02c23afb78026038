// One tab's part of the bridge: the plug-in elements of its frames, and the one native port to passway-host,
// opened when the first element of an approved origin appears and kept until the tab closes (the plug-in
// stays loaded across the tab's page loads, as in a browser). Protocol: docs/bridge.md.
import { portalOrigin, readApprovals, setWaiting, waitingEntry } from './approval.js';
import { HOST_NAME, PROTOCOL_VERSION, statusOfDisconnect, statusOfMessage } from './host-status.js';
import { callsInPage } from './page-call.js';
import { PartJoiner } from './parts.js';
import { applyPresence, disconnectReason, setHostEnded, setHostStatus } from './presence.js';
import { forgetTab } from './tab-badge.js';
const MAX_CALLS_AT_ONCE = 256;  // page calls in one injection
const NPERR_NO_ERROR = 0;  // the NPError of an NPP_New or NPP_Destroy that succeeded
// What the plug-in tells a page when the service of its session is gone: c_addcomm('ssldrop').
const SESSION_FUNCTION = 'c_addcomm';
const SESSION_DROPPED = 'ssldrop';

// A call the host may ask for: a plain function name and at most one text or number.
function isPageCall(name, args) {
  return typeof name === 'string' && /^[A-Za-z_$][\w$]*$/.test(name) && Array.isArray(args) && args.length <= 1 &&
    args.every((arg) => typeof arg === 'string' || typeof arg === 'number');
}

export class TabSession {
  #tabId;
  #native = null;
  #parts = new PartJoiner();
  #nextElement = 1;
  #elements = new Map();  // element id -> {id, frame, attributes, state}
  #requests = new Map();  // fetch request id -> element
  #queuedCalls = [];  // page calls in the host's order, waiting for the injection before them
  #calling = false;

  constructor(tabId) {
    this.#tabId = tabId;
  }

  // A content script's port: one frame's document. It closes when that document goes away.
  attachFrame(port) {
    const sender = port.sender;
    // The top-level page's origin: the frame's own for the top frame, else the tab's.
    const top = sender.frameId === 0 ? sender.origin : portalOrigin(sender.tab?.url ?? '') ?? 'null';
    const frame = { port, origin: sender.origin, top, frameId: sender.frameId, documentId: sender.documentId,
                    keys: new Map() };
    port.onMessage.addListener((message) => this.#fromFrame(frame, message));
    port.onDisconnect.addListener(() => {
      for (const element of frame.keys.values()) this.#remove(element);
      frame.keys.clear();
    });
  }

  // The tab closed: the host ends (NP_Shutdown) when its input closes.
  close() {
    this.#native?.disconnect();
    this.#native = null;
    forgetTab(this.#tabId);
  }

  // Elements waiting for approval whose origins are now approved are created, without a reload. When an
  // element that runs is no longer approved, the tab's host ends at once (with it every instance and the
  // service it started) and every element of the tab waits again: those still approved get a new host.
  async approvalsChanged() {
    const approvals = await readApprovals();
    const revoked = [...this.#elements.values()].some(
      (element) => element.state === 'created' && !approvals.runs(element.frame.origin, element.frame.top));
    if (revoked) this.#endHost();
    for (const element of this.#elements.values()) {
      if (element.state === 'waiting') await this.#admit(element);
    }
    await this.#showWaiting();
  }

  #fromFrame(frame, message) {
    switch (message.op) {
      case 'appear': {
        if (frame.keys.has(message.key)) this.#remove(frame.keys.get(message.key));  // announced again
        const attributes = Array.isArray(message.attributes)
          ? message.attributes.map(([name, value]) => [String(name), String(value)]) : [];
        const element = { id: this.#nextElement++, frame, attributes, state: 'waiting' };
        frame.keys.set(message.key, element);
        this.#elements.set(element.id, element);
        this.#admit(element).then(() => this.#showWaiting());
        break;
      }
      case 'vanish': {
        const element = frame.keys.get(message.key);
        frame.keys.delete(message.key);
        if (element) this.#remove(element);
        break;
      }
      case 'response':
      case 'data':
      case 'end':
        this.#relayDownload(frame, message);
        break;
    }
  }

  async #admit(element) {
    const approvals = await readApprovals();
    if (!approvals.runs(element.frame.origin, element.frame.top) || element.state !== 'waiting') return;
    applyPresence();  // the administrator's list may have come only now
    element.state = 'created';
    this.#connect(element.frame.origin);
    this.#send({ op: 'create', element: element.id, attributes: element.attributes });
  }

  #remove(element) {
    const was = element.state;
    element.state = 'gone';
    this.#elements.delete(element.id);
    for (const [request, owner] of this.#requests) {
      if (owner !== element) continue;
      this.#requests.delete(request);
      this.#toFrame(element.frame, { op: 'cancel', request });
    }
    if (was === 'created') this.#send({ op: 'destroy', element: element.id });
    else if (was === 'waiting') this.#showWaiting();
  }

  async #showWaiting() {
    const approvals = await readApprovals();
    const entries = new Map();
    for (const { state, frame } of this.#elements.values()) {
      if (state === 'waiting') entries.set(`${frame.origin} ${frame.top}`, waitingEntry(approvals, frame.origin, frame.top));
    }
    await setWaiting(this.#tabId, [...entries.values()]);
  }

  // Ends the tab's host: its instances end with it, and every element of the tab waits again.
  #endHost() {
    this.#native?.disconnect();
    this.#native = null;
    this.#dropHostWork();
    for (const element of this.#elements.values()) {
      if (element.state === 'created' || element.state === 'lost') element.state = 'waiting';
    }
  }

  // What the host that went asked for: its downloads are cancelled, its page calls not made.
  #dropHostWork() {
    for (const [request, element] of this.#requests) this.#toFrame(element.frame, { op: 'cancel', request });
    this.#requests.clear();
    this.#queuedCalls.length = 0;
  }

  #connect(origin) {
    if (this.#native) return;
    const native = chrome.runtime.connectNative(HOST_NAME);
    this.#native = native;
    let ready = false;
    native.onMessage.addListener((message) => {
      ready ||= message?.op === 'ready';
      this.#fromHost(message);
    });
    native.onDisconnect.addListener(() => {
      const reason = disconnectReason(native);
      console.warn(`passway: the host of tab ${this.#tabId} went away:`, reason ?? 'closed');
      if (!ready) setHostStatus(statusOfDisconnect(reason));  // missing, or ended before it could serve
      if (this.#native !== native) return;
      this.#native = null;
      // Its plug-in instances died with it; a page loaded later starts a new host. The host's guard stops
      // the service a session ran on: its element hears what the plug-in tells a page when the service is
      // gone, and the user is told.
      const dropped = [];
      for (const element of this.#elements.values()) {
        if (element.state !== 'created') continue;
        element.state = 'lost';
        if (element.session) dropped.push(element);
      }
      this.#dropHostWork();
      if (!ready) return;
      setHostEnded(this.#tabId, dropped.length > 0);
      for (const { frame } of dropped) {
        callsInPage(this.#tabId, frame.documentId, frame.frameId, frame.origin, [[SESSION_FUNCTION, [SESSION_DROPPED]]]);
      }
    });
    this.#send({ op: 'hello', version: PROTOCOL_VERSION, userAgent: navigator.userAgent, origin });
  }

  #send(message) {
    try {
      this.#native?.postMessage(message);
    } catch (error) {
      console.warn('passway: cannot write to the host:', error);
    }
  }

  #toFrame(frame, message) {
    try {
      frame.port.postMessage(message);
    } catch {}  // the frame's document is gone
  }

  #fromHost(message) {
    // Whether the host can serve, errors first: a host of another version says so in an error of its own.
    const status = statusOfMessage(message);
    if (status) setHostStatus(status);
    if (message?.op === 'error') {
      console.warn('passway: the host refused a message:', JSON.stringify(message));
      return;
    }
    if (message?.version !== PROTOCOL_VERSION) return;  // the status says why
    if (message.op === 'part') {
      let whole;
      try {
        whole = this.#parts.add(message);
      } catch (error) {
        console.warn('passway: a message in parts is not JSON:', error);
      }
      if (whole) this.#fromHost(whole);
      return;
    }
    switch (message.op) {
      case 'ready':
        console.info(`passway: host ready in tab ${this.#tabId}: ${message.name} (${message.plugin})`);
        setHostEnded(this.#tabId, null);
        break;
      case 'session': {
        const element = this.#elements.get(message.element);
        if (element) element.session = true;
        break;
      }
      case 'created':
      case 'destroyed':
        if (message.result !== NPERR_NO_ERROR) console.warn(`passway: ${message.op} element ${message.element}: NPError`, message.result);
        break;
      case 'call':
        this.#pageCall(message);
        break;
      case 'fetch':
        this.#startDownload(message);
        break;
      case 'cancel': {
        const element = this.#requests.get(message.request);
        this.#requests.delete(message.request);
        if (element) this.#toFrame(element.frame, { op: 'cancel', request: message.request });
        break;
      }
      default:
        console.warn('passway: unknown message from the host:', JSON.stringify(message));
    }
  }

  #pageCall({ call, element: id, function: name, args }) {
    const element = this.#elements.get(id);
    if (element?.state !== 'created' || !Number.isSafeInteger(call)) return;  // the host dropped its calls
    if (name === SESSION_FUNCTION && Array.isArray(args) && args[0] === SESSION_DROPPED) element.session = false;
    this.#queuedCalls.push({ call, element, name, args, host: this.#native });
    if (!this.#calling) this.#runCalls();
  }

  // Makes the queued page calls in order. The calls for one document that queued up while the injection
  // before them ran go in one injection: a download's hundreds of progress calls stay cheap.
  async #runCalls() {
    this.#calling = true;
    while (this.#queuedCalls.length > 0) {
      const first = this.#queuedCalls[0].element.frame;
      let count = 1;
      while (count < this.#queuedCalls.length && count < MAX_CALLS_AT_ONCE &&
             this.#queuedCalls[count].element.frame === first) ++count;
      const batch = this.#queuedCalls.splice(0, count);
      const good = batch.filter(({ name, args }) => isPageCall(name, args));
      const results = good.length > 0
        ? await callsInPage(this.#tabId, first.documentId, first.frameId, first.origin,
                            good.map(({ name, args }) => [name, args]))
        : [];
      for (const entry of batch) {
        // A host that ended meanwhile took its calls with it, even when its element runs again under another.
        if (entry.host !== this.#native || entry.element.state !== 'created') continue;
        const at = good.indexOf(entry);
        const result = at >= 0 ? results[at] : { error: 'not a call the extension makes' };
        // Field by field: nothing of the page's answer but the text checked in page-call.js goes on.
        const message = { op: 'result', call: entry.call };
        if (typeof result.error === 'string') message.error = result.error;
        else message.value = typeof result.value === 'string' ? result.value : null;
        this.#send(message);
      }
    }
    this.#calling = false;
  }

  #startDownload({ request, element: id, url }) {
    const element = this.#elements.get(id);
    if (element?.state !== 'created') return;
    let href = null;
    try {
      const parsed = new URL(url);
      if (parsed.protocol === 'http:' || parsed.protocol === 'https:') href = parsed.href;
    } catch {}
    if (!href) {
      this.#send({ op: 'end', request, ok: false, error: `not an http(s) URL: ${url}` });
      return;
    }
    this.#requests.set(request, element);
    this.#toFrame(element.frame, { op: 'fetch', request, url: href });
  }

  // The frame's download messages, passed on while the request is open (not cancelled, element alive).
  #relayDownload(frame, message) {
    const request = message.request;
    if (this.#requests.get(request)?.frame !== frame) return;
    if (message.op === 'response') {
      const status = Number(message.status);
      this.#send({ op: 'response', request, status, mimeType: String(message.mimeType) });
      if (status < 200 || status > 299) this.#requests.delete(request);  // the host ends it here
    } else if (message.op === 'data') {
      this.#send({ op: 'data', request, data: String(message.data) });
    } else {
      this.#requests.delete(request);
      const end = { op: 'end', request, ok: message.ok === true };
      if (!end.ok) end.error = String(message.error ?? 'network error');
      this.#send(end);
    }
  }
}
