'use strict';
// Runs in the page's own world before the page's scripts, on approved portal origins only (presence.js
// registers it for them): shows the plug-in in navigator.plugins and navigator.mimeTypes, as a browser
// shows an installed NPAPI plug-in, with what the plug-in reported of itself through passway-host. Those
// values reach this document in a Server-Timing entry, "passway-plugin", that the extension adds to the
// document's response while the host and the plug-in are there; without it the page sees nothing of them.
(() => {
  const TIMING_NAME = 'passway-plugin';
  const navigation = performance.getEntriesByType('navigation')[0];
  const entry = (navigation?.serverTiming ?? []).filter((timing) => timing.name === TIMING_NAME).pop();
  if (!entry) return;
  let info;
  try {
    info = JSON.parse(decodeURIComponent(entry.description));
  } catch {
    return;
  }
  if (!info || typeof info !== 'object' || !Array.isArray(info.mimeTypes)) return;

  const constant = (target, name, value, enumerable = false) =>
    Object.defineProperty(target, name, { value, enumerable, configurable: true });
  // An array-like list as the browser's own: indexed (enumerable), named by `keyOf` (not enumerable),
  // with length, item(), namedItem() and iteration.
  const list = (target, items, keyOf) => {
    items.forEach((item, index) => constant(target, index, item, true));
    for (const item of items) if (!(keyOf(item) in target)) constant(target, keyOf(item), item);
    constant(target, 'length', items.length);
    constant(target, 'item', (index) => items[index >>> 0] ?? null);
    constant(target, 'namedItem', (name) => items.find((item) => keyOf(item) === String(name)) ?? null);
    constant(target, Symbol.iterator, () => items[Symbol.iterator]());
    return target;
  };

  const plugin = Object.create(Plugin.prototype);
  const mimeTypes = info.mimeTypes.map((given) => {
    const mimeType = Object.create(MimeType.prototype);
    constant(mimeType, 'type', String(given.type), true);
    constant(mimeType, 'suffixes', String(given.suffixes), true);
    constant(mimeType, 'description', String(given.description), true);
    constant(mimeType, 'enabledPlugin', plugin, true);
    return mimeType;
  });
  constant(plugin, 'name', String(info.name), true);
  constant(plugin, 'description', String(info.description), true);
  constant(plugin, 'filename', String(info.filename), true);
  list(plugin, mimeTypes, (mimeType) => mimeType.type);

  const plugins = list(Object.create(PluginArray.prototype), [...navigator.plugins, plugin], (p) => p.name);
  constant(plugins, 'refresh', () => {});
  const allTypes = list(Object.create(MimeTypeArray.prototype), [...navigator.mimeTypes, ...mimeTypes], (t) => t.type);
  Object.defineProperty(navigator, 'plugins', { get: () => plugins, enumerable: true, configurable: true });
  Object.defineProperty(navigator, 'mimeTypes', { get: () => allTypes, enumerable: true, configurable: true });
})();
