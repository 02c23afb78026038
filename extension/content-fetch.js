'use strict';
// Package downloads for the host, made in the page's context (its cookies go with them) and streamed back
// to the background: `response`, then `data` pieces (base64 of at most 1 MiB each), then `end`.
// Loaded before content.js, which hands it the background's `fetch` and `cancel` messages.

const PIECE_BYTES = 1 << 20;

function toBase64(bytes) {
  if (bytes.toBase64) return bytes.toBase64();
  let text = '';
  for (let at = 0; at < bytes.length; at += 0x8000) text += String.fromCharCode(...bytes.subarray(at, at + 0x8000));
  return btoa(text);
}

class PackageFetches {
  #running = new Map();  // request -> AbortController

  // Fetches `url` and reports to `port`; a failure before or during the body ends the request with ok false.
  async start(port, request, url) {
    const controller = new AbortController();
    this.#running.set(request, controller);
    const send = (message) => {
      if (controller.signal.aborted) return;
      try {
        port.postMessage({ request, ...message });
      } catch {
        controller.abort();  // the background is gone: nobody wants the rest
      }
    };
    try {
      const response = await fetch(url, { credentials: 'include', signal: controller.signal });
      send({ op: 'response', status: response.status, mimeType: response.headers.get('content-type') ?? '' });
      if (!response.ok) {
        controller.abort();  // the host ends a request with another status at the response
        return;
      }
      const reader = response.body.getReader();
      for (;;) {
        const { done, value } = await reader.read();
        if (done) break;
        for (let at = 0; at < value.length; at += PIECE_BYTES) {
          send({ op: 'data', data: toBase64(value.subarray(at, at + PIECE_BYTES)) });
        }
      }
      send({ op: 'end', ok: true });
    } catch (error) {
      send({ op: 'end', ok: false, error: String(error?.message ?? error) });
    } finally {
      this.#running.delete(request);
    }
  }

  cancel(request) {
    this.#running.get(request)?.abort();
    this.#running.delete(request);
  }

  cancelAll() {
    for (const controller of this.#running.values()) controller.abort();
    this.#running.clear();
  }
}
