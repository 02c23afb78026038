// What the extension makes of the host's messages and of a host port that closes, and what it tells the
// user about each.
import assert from 'node:assert';
import test from 'node:test';
import { describe, parseMimeDescription, statusOfDisconnect, statusOfMessage } from '../../extension/host-status.js';

const ready = { op: 'ready', version: 1, hostVersion: '7135.2016.429.1', plugin: '/usr/lib/mozilla/plugins/libtunvo_plugin.so',
  name: 'Orvane Passway plugin', description: 'Orvane Passway plugin, Ver. 7135.2016.429.1',
  mimeDescription: 'application/x-orvane-sslvpn:xvpn:Orvane Passway plugin;;A/B:b,c:one: two;:xvpn:no type;x/y' };

test('a ready host: the plug-in it loaded, its MIME types one per entry (type in lower case, empty ones left out)', () => {
  assert.deepStrictEqual(statusOfMessage(ready), { state: 'ready', hostVersion: ready.hostVersion, plugin: {
    path: ready.plugin, filename: 'libtunvo_plugin.so', name: ready.name, description: ready.description,
    mimeTypes: [{ type: 'application/x-orvane-sslvpn', suffixes: 'xvpn', description: 'Orvane Passway plugin' },
                { type: 'a/b', suffixes: 'b,c', description: 'one: two' }, { type: 'x/y', suffixes: '', description: '' }] } });
  for (const nothing of ['', 5, undefined]) assert.deepStrictEqual(parseMimeDescription(nothing), [], String(nothing));
  for (const message of [{ op: 'error', code: 7, version: 1 }, { op: 'call', version: 1 }, 'ready', null])
    assert.strictEqual(statusOfMessage(message), null, `${JSON.stringify(message)} says nothing of the host`);
});

test('the user is told what is wrong and what to do (errors read before the version); nothing when all is well', () => {
  const missing = /^! .*passway-host is not installed \| .*Install the Passway package/;
  const rows = [
    // [status, what the badge, the button's title and the popup's explanation say]; a missing host as Chromium,
    // then Firefox, words it
    [statusOfDisconnect('Specified native messaging host not found.'), missing],
    [statusOfDisconnect('No such native application com.orvane.passway'), missing],
    [statusOfDisconnect('Native host has exited.'), /^! .*stopped \| .*before it was ready: Native host has exited\./],
    [statusOfMessage({ op: 'error', code: 2, message: 'unsupported version', got: 1, version: 0 }),
     /^! .*another version \| .*\(an older version, protocol 0\) does not match this extension \(protocol 1\)/],
    [statusOfMessage({ op: 'error', code: 2, got: 1, version: 2, hostVersion: '8000' }), /^! .*\(8000, protocol 2\)/],
    [statusOfMessage({ op: 'call', version: 2 }), /^! .*another version \| .*protocol 2\)/],
    [statusOfMessage({ op: 'error', code: 5, path: '/x.so', version: 0, hostVersion: '1' }),
     /^! .*cannot be loaded \| passway-host 1 could not load the VPN plug-in \(\/x\.so\)/],
  ];
  for (const [status, says] of rows) {
    const { badge, title, explanation } = describe(status);
    assert.match(`${badge} ${title} | ${explanation.join(' ')}`, says, JSON.stringify(status));
  }
  assert.deepStrictEqual(describe(statusOfMessage(ready)), { badge: '', title: `Passway: ${ready.description}`, explanation: [] });
  assert.deepStrictEqual(describe(null), { badge: '', title: 'Passway', explanation: [] }, 'not known yet');
});
