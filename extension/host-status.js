// What the extension knows of passway-host and the plug-in it loads, from the host's messages and from how
// its port ends, and what the user is told about it. No browser API here: the background keeps the status
// (presence.js) and the popup shows it.
//
// A status is one of
//   {state: 'ready', hostVersion, plugin: {path, filename, name, description, mimeTypes: [{type, suffixes,
//    description}]}}   the host runs and loaded the plug-in
//   {state: 'missing', detail}              the browser finds no host: passway-host is not installed
//   {state: 'version', hostVersion, protocol}  the host speaks another protocol version than this extension
//   {state: 'no-plugin', hostVersion, path}    the host could not load the plug-in
//   {state: 'failed', detail}               the host ended before it was ready
export const PROTOCOL_VERSION = 1;
export const HOST_NAME = 'com.orvane.passway';
export const EXTENSION_VERSION = globalThis.chrome?.runtime?.getManifest?.().version ?? '';

// The host's error codes that say the host cannot serve at all (docs/bridge.md).
const UNSUPPORTED_VERSION = 2;
const NO_PLUGIN = 5;

const text = (value) => (typeof value === 'string' ? value : '');

// An NPAPI MIME description, "type:suffix,suffix:description;type:...", as a list of MIME types.
export function parseMimeDescription(description) {
  return text(description).split(';').filter((entry) => entry.trim()).map((entry) => {
    const [type = '', suffixes = '', ...rest] = entry.split(':');
    return { type: type.trim().toLowerCase(), suffixes: suffixes.trim(), description: rest.join(':') };
  }).filter((mimeType) => mimeType.type);
}

// The status a host message tells, or null when it tells none. Errors are read before the version: a host
// of another version says so with an error of its own.
export function statusOfMessage(message) {
  if (message === null || typeof message !== 'object') return null;
  const hostVersion = text(message.hostVersion);
  if (message.op === 'error' && message.code === UNSUPPORTED_VERSION) {
    return { state: 'version', hostVersion, protocol: message.version };
  }
  if (message.op === 'error' && message.code === NO_PLUGIN) {
    return { state: 'no-plugin', hostVersion, path: text(message.path) };
  }
  if (message.version !== PROTOCOL_VERSION) return { state: 'version', hostVersion, protocol: message.version };
  if (message.op !== 'ready') return null;
  const path = text(message.plugin);
  return {
    state: 'ready', hostVersion, plugin: {
      path, filename: path.slice(path.lastIndexOf('/') + 1), name: text(message.name),
      description: text(message.description), mimeTypes: parseMimeDescription(message.mimeDescription),
    },
  };
}

// The status of a host port that closed before the host said it was ready, from the browser's reason.
export function statusOfDisconnect(reason) {
  const detail = text(reason);
  // Chromium: "Specified native messaging host not found."; Firefox: "No such native application ...".
  if (/not found|no such native application/i.test(detail)) return { state: 'missing', detail };
  return { state: 'failed', detail: detail || 'the host ended' };
}

// What the toolbar button and the popup say of a status: a badge ('' when all is well), the button's title,
// and the popup's explanation (an empty list when all is well).
export function describe(status) {
  const ours = `protocol ${PROTOCOL_VERSION}${EXTENSION_VERSION ? `, extension ${EXTENSION_VERSION}` : ''}`;
  switch (status?.state) {
    case 'ready':
      return { badge: '', title: `Passway: ${status.plugin.description || status.plugin.name}`, explanation: [] };
    case 'missing':
      return {
        badge: '!', title: 'Passway: passway-host is not installed',
        explanation: ['The VPN plug-in\'s helper program, passway-host, is not installed for this browser.',
                      'Install the Passway package (passway-plugin) for your system, or ask your administrator; ' +
                      'then restart the browser.'],
      };
    case 'version':
      return {
        badge: '!', title: 'Passway: passway-host is of another version',
        explanation: [`The installed passway-host (${status.hostVersion || 'an older version'}, protocol ` +
                      `${status.protocol ?? 'unknown'}) does not match this extension (${ours}).`,
                      'Install the Passway package and the extension of the same release.'],
      };
    case 'no-plugin':
      return {
        badge: '!', title: 'Passway: the VPN plug-in cannot be loaded',
        explanation: [`passway-host ${status.hostVersion} could not load the VPN plug-in` +
                      `${status.path ? ` (${status.path})` : ''}.`,
                      'Install the Passway package (it holds the plug-in), or ask your administrator.'],
      };
    case 'failed':
      return {
        badge: '!', title: 'Passway: passway-host stopped',
        explanation: [`passway-host stopped before it was ready: ${status.detail}.`,
                      'Reinstall the Passway package; the browser\'s log has the host\'s own lines.'],
      };
    default:
      return { badge: '', title: 'Passway', explanation: [] };
  }
}
