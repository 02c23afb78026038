"""The Chromium engine of the end-to-end run: headless Chromium with the Passway extension as built for Chromium
(build/extension/chromium/, loaded unpacked) and passway-host, driven over the DevTools pipe. What the visits
do with it is in engine_bridge.py.

The administrator's policy: Chromium reads managed policies only from the system-wide folder
/etc/chromium/policies/managed/, and merges the files it finds there: two runs side by side, each with a file
approving its own portal, would each see one of the two lists. Run as root, the engine writes its policy into a
folder of the run's own that stands in /etc/chromium for this browser alone (a bind mount in the browser's own
mount namespace; for an installed package's run, a copy of the real /etc/chromium, which holds the package's
host manifest); the real folder is never written. Otherwise it approves the portal in the popup."""
import base64
import hashlib
import json
import os
import shutil
import subprocess
import urllib.parse

from devtools_pipe import DevToolsPipe
from engine_bridge import HOST_NAME, BridgeEngine, poll

CHROMIUM = '/usr/lib/chromium/chromium'
ETC = '/etc/chromium'


def extension_id(extension_dir):
    """The ID that the manifest's "key" fixes: the first 32 hex digits of SHA-256 of the key, as a-p."""
    with open(os.path.join(extension_dir, 'manifest.json')) as f:
        key = base64.b64decode(json.load(f)['key'])
    return ''.join(chr(ord('a') + int(digit, 16)) for digit in hashlib.sha256(key).hexdigest()[:32])


class ChromiumEngine(BridgeEngine):
    name = 'chromium'
    program = CHROMIUM
    installed_program = '/usr/bin/chromium'  # Debian's launcher: it loads /usr/share/chromium/extensions/*
    installed_extension = '/usr/share/chromium/extensions/passway'
    log_words = ('passway', 'console', 'nativemessaging')

    def __init__(self, build, source, host, window=False, installed=False, forcelist=False):
        super().__init__(build, source, host, window, installed)
        # forcelist: the extension installed by the administrator's ExtensionInstallForcelist from the packed
        # CRX and its update manifest, served by the portal's server (root only: the policy lives in a mount
        # namespace of the browser's own, where a private folder stands in /etc/chromium, so that no other
        # Chromium on the machine sees it)
        self.forcelist = forcelist
        self.build = build
        self.browser = None
        self.private_etc = None  # the run's folder that stands in /etc/chromium for this browser

    def launch(self, run):
        """A fresh profile in the run's folder, with the host manifest pointing at the host; the policy."""
        self.id = extension_id(self.extension)
        profile = os.path.join(run.work, 'chromium-profile')
        hosts = os.path.join(profile, 'NativeMessagingHosts')
        os.makedirs(hosts, exist_ok=True)
        if not self.installed:  # the installed package's manifest is in /etc/chromium/native-messaging-hosts
            manifest = self.host_manifest(run)
            if manifest['allowed_origins'] != ['chrome-extension://%s/' % self.id]:
                raise RuntimeError('the host manifest does not name the extension ID %s that its key gives' % self.id)
            self.manifest_file = os.path.join(hosts, HOST_NAME + '.json')
            with open(self.manifest_file, 'w') as f:
                json.dump(manifest, f)
        if self.forcelist:
            self.publish_extension(run)
        self.write_policy(run)
        ours = [] if self.installed or self.forcelist else ['--load-extension=' + self.extension]
        argv = [self.program] + ([] if self.window else ['--headless=new']) + [
            '--no-sandbox', '--user-data-dir=' + profile, '--no-first-run', '--disable-gpu', '--disable-dev-shm-usage',
            '--disable-background-networking', '--disable-component-update', '--disable-sync'] + ours + [
            # Names under .test are other sites on the portal's server (plain http, not loopback by name).
            '--host-resolver-rules=MAP *.test 127.0.0.1', '--disable-features=HttpsUpgrades',
            '--remote-debugging-pipe', '--window-size=800,500', '--enable-logging=stderr', '--v=0', 'about:blank']
        if self.forcelist:  # the forced install is a download that background networking would stop
            argv.remove('--disable-background-networking')
        if self.private_etc:
            argv = ['unshare', '--mount', '--propagation', 'private', 'sh', '-c',
                    'mount --bind "$0" %s && exec "$@"' % ETC, self.private_etc] + argv
        with open(self.log_path, 'w') as log:
            self.browser = DevToolsPipe(argv, self.env, log)
        self.browser_pid = self.browser.process.pid
        if self.forcelist and not poll(lambda: any(
                target['url'].startswith('chrome-extension://%s/' % self.id)
                for target in self.browser.command('Target.getTargets')['targetInfos'])):
            raise RuntimeError('the administrator\'s ExtensionInstallForcelist did not install %s' % self.id)

    def write_policy(self, run):
        """The administrator's policy approving the portal (and, for a forcelist run, installing the extension),
        in the run's own stand-in for /etc/chromium (root only)."""
        if not self.portal_origin:
            return
        if os.geteuid() != 0:
            self.policy_note = 'not root: no Chromium policy in %s' % ETC
            return
        self.private_etc = os.path.join(run.work, 'etc-chromium')
        if not os.path.isdir(self.private_etc) and os.path.isdir(ETC):
            shutil.copytree(ETC, self.private_etc, symlinks=True)
        managed = os.path.join(self.private_etc, 'policies', 'managed')
        os.makedirs(managed, exist_ok=True)
        policy = {'3rdparty': {'extensions': {self.id: self.policy_settings()}}}
        if self.forcelist:
            # DeveloperToolsAvailability 1: the run drives the popup of a force-installed extension over DevTools.
            policy.update({'ExtensionInstallForcelist': ['%s;%s/update.xml' % (self.id, self.portal_origin)],
                           'DeveloperToolsAvailability': 1})
        self.policy = os.path.join(managed, 'passway.json')
        with open(self.policy, 'w') as f:
            json.dump(policy, f)

    def publish_extension(self, run):
        """The packed extension and its update manifest on the portal's server, for the forcelist policy."""
        site = os.path.join(run.work, 'site')
        shutil.copy(os.path.join(self.build, 'extension', 'passway-chromium.crx'), site)
        update = subprocess.run([os.path.join(self.build, 'tools', 'passway-crx'), 'update-manifest', self.id, '1.0',
                                 '%s/passway-chromium.crx' % self.portal_origin], capture_output=True, text=True, check=True)
        with open(os.path.join(site, 'update.xml'), 'w') as f:
            f.write(update.stdout)

    # ---- tabs ----------------------------------------------------------------------------------
    def open_tab(self, url):
        target = self.browser.command('Target.createTarget', {'url': url})['targetId']
        session = self.browser.command('Target.attachToTarget', {'targetId': target, 'flatten': True})['sessionId']
        return {'target': target, 'session': session}

    def close_tab(self, tab):
        self.browser.command('Target.closeTarget', {'targetId': tab['target']})

    def evaluate(self, tab, expression):
        result = self.browser.command('Runtime.evaluate', {'expression': expression, 'returnByValue': True,
                                                           'awaitPromise': True}, session=tab['session'])
        if 'exceptionDetails' in result:
            return None
        return result['result'].get('value')

    def go(self, tab, url):
        self.browser.command('Page.navigate', {'url': url}, session=tab['session'])
        poll(lambda: self.evaluate(tab, 'location.href') == url)

    def screenshot(self, tab, path):
        shot = self.browser.command('Page.captureScreenshot', {'format': 'png'}, session=tab['session'])
        with open(path, 'wb') as f:
            f.write(base64.b64decode(shot['data']))

    def popup_url(self, origin):
        return 'chrome-extension://%s/popup.html?origin=%s' % (self.id, urllib.parse.quote(origin, safe=''))

    def quit(self):
        if self.browser:
            self.browser.close()
            self.browser = None
