// Joins the host's `part` frames: the slices of one message's JSON text, by `id`, the last one marked
// `last: true`.
export class PartJoiner {
  #slices = new Map();  // id -> [text, ...]

  // The whole message once its last slice came, else null. Throws on a message that is not JSON.
  add(part) {
    const slices = this.#slices.get(part.id) ?? [];
    slices.push(String(part.data ?? ''));
    if (!part.last) {
      this.#slices.set(part.id, slices);
      return null;
    }
    this.#slices.delete(part.id);
    return JSON.parse(slices.join(''));
  }
}
