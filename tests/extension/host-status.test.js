// What the extension makes of the host's messages and of a host port that closes, and what it tells the
// user about each.
import assert from 'node:assert';
import test from 'node:test';
import { describe, parseMimeDescription, statusOfDisconnect, statusOfMessage } from '../../extension/host-status.js';

const ready = {
  op: 'ready', version: 1, hostVersion: '7135.2016.429.1', plugin: '/usr/lib/mozilla/plugins/libtunvo_plugin.so',
  name: 'Orvane Passway plugin', description: 'Orvane Passway plugin, Ver. 7135.2016.429.1',
  mimeDescription: 'application/x-orvane-sslvpn:xvpn:Orvane Passway plugin',
};

test('MIME descriptions: type, suffixes and description per entry', () => {
  const rows = [
    ['the plug-in\'s own', ready.mimeDescription,
     [{ type: 'application/x-orvane-sslvpn', suffixes: 'xvpn', description: 'Orvane Passway plugin' }]],
    ['two types, a colon in a description, a type in capitals', 'A/B:b,c:one: two;x/y::',
     [{ type: 'a/b', suffixes: 'b,c', description: 'one: two' }, { type: 'x/y', suffixes: '', description: '' }]],
    ['nothing', '', []],
    ['not a text', 5, []],
    ['empty entries', ';;:xvpn:no type;', []],
  ];
  for (const [name, text, expected] of rows) assert.deepStrictEqual(parseMimeDescription(text), expected, name);
});

test('host messages: ready, a host that cannot serve (errors read before the version), or nothing to say', () => {
  const rows = [
    ['ready', ready, {
      state: 'ready', hostVersion: '7135.2016.429.1', plugin: {
        path: ready.plugin, filename: 'libtunvo_plugin.so', name: ready.name, description: ready.description,
        mimeTypes: parseMimeDescription(ready.mimeDescription) } }],
    ['an older host refuses our hello', { op: 'error', code: 2, message: 'unsupported version', got: 1, version: 0 },
     { state: 'version', hostVersion: '', protocol: 0 }],
    ['a newer host refuses our hello', { op: 'error', code: 2, got: 1, version: 2, hostVersion: '8000' },
     { state: 'version', hostVersion: '8000', protocol: 2 }],
    ['the plug-in cannot be loaded', { op: 'error', code: 5, path: '/x.so', version: 1, hostVersion: '1' },
     { state: 'no-plugin', hostVersion: '1', path: '/x.so' }],
    ['any message of another version', { op: 'call', version: 2 }, { state: 'version', hostVersion: '', protocol: 2 }],
    ['a message without a version', { op: 'ready' }, { state: 'version', hostVersion: '', protocol: undefined }],
    ['another error', { op: 'error', code: 7, version: 1 }, null],
    ['an ordinary message', { op: 'call', version: 1 }, null],
    ['no object', 'ready', null],
    ['null', null, null],
  ];
  for (const [name, message, expected] of rows) assert.deepStrictEqual(statusOfMessage(message), expected, name);
});

test('a host port that closes before ready: missing (as each browser words it) or failed', () => {
  const rows = [
    ['Chromium', 'Specified native messaging host not found.', 'missing'],
    ['Firefox', 'No such native application com.orvane.passway', 'missing'],
    ['the host ended', 'Native host has exited.', 'failed'],
    ['no reason', undefined, 'failed'],
  ];
  for (const [name, reason, state] of rows) assert.strictEqual(statusOfDisconnect(reason).state, state, name);
});

test('the user is told what is wrong and what to install; nothing when all is well', () => {
  const problems = [
    [{ state: 'missing' }, /not installed/, /Install the Passway package/],
    [{ state: 'version', hostVersion: '7000', protocol: 0 }, /another version/, /7000, protocol 0.*protocol 1/],
    [{ state: 'no-plugin', hostVersion: '1', path: '/x.so' }, /cannot be loaded/, /\/x\.so/],
    [{ state: 'failed', detail: 'Native host has exited.' }, /stopped/, /Native host has exited/],
  ];
  for (const [status, title, explanation] of problems) {
    const shown = describe(status);
    assert.strictEqual(shown.badge, '!', status.state);
    assert.match(shown.title, title, status.state);
    assert.match(shown.explanation.join(' '), explanation, status.state);
  }
  const fine = describe(statusOfMessage(ready));
  assert.deepStrictEqual([fine.badge, fine.title, fine.explanation], ['', `Passway: ${ready.description}`, []]);
  assert.deepStrictEqual(describe(null), { badge: '', title: 'Passway', explanation: [] }, 'not known yet');
});
