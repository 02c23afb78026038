"""The Chromium engine of the end-to-end run: headless Chromium with the Passway extension as built for Chromium
(build/extension/chromium/, loaded unpacked) and passway-host, driven over the DevTools pipe. What the visits
do with it is in engine_bridge.py.

The administrator's policy: Chromium reads managed policies only from the system-wide folder
/etc/chromium/policies/managed/. Run as root, the engine writes a policy file of its own there (a name no one
else uses: passway-e2e-XXXXXXXX.json) before the browser starts and removes it (and any folder it made) when
the run ends; otherwise it writes nothing there and approves the portal in the popup."""
import base64
import hashlib
import json
import os
import shutil
import subprocess
import tempfile
import urllib.parse

from devtools_pipe import DevToolsPipe
from engine_bridge import HOST_NAME, BridgeEngine, poll

CHROMIUM = '/usr/lib/chromium/chromium'
POLICY_DIR = '/etc/chromium/policies/managed'


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
        self.policy_made = []  # the policy file and the folders made for it, removed at the end

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
            self.write_private_policy(run)
        else:
            self.write_policy()
        ours = [] if self.installed or self.forcelist else ['--load-extension=' + self.extension]
        argv = [self.program] + ([] if self.window else ['--headless=new']) + [
            '--no-sandbox', '--user-data-dir=' + profile, '--no-first-run', '--disable-gpu', '--disable-dev-shm-usage',
            '--disable-background-networking', '--disable-component-update', '--disable-sync'] + ours + [
            # Names under .test are other sites on the portal's server (plain http, not loopback by name).
            '--host-resolver-rules=MAP *.test 127.0.0.1', '--disable-features=HttpsUpgrades',
            '--remote-debugging-pipe', '--window-size=800,500', '--enable-logging=stderr', '--v=0', 'about:blank']
        if self.forcelist:  # the forced install is a download that background networking would stop
            argv.remove('--disable-background-networking')
            argv = ['unshare', '--mount', '--propagation', 'private', 'sh', '-c',
                    'mount --bind "$0" /etc/chromium && exec "$@"', self.private_etc] + argv
        with open(self.log_path, 'w') as log:
            self.browser = DevToolsPipe(argv, self.env, log)
        self.browser_pid = self.browser.process.pid
        if self.forcelist and not poll(lambda: any(
                target['url'].startswith('chrome-extension://%s/' % self.id)
                for target in self.browser.command('Target.getTargets')['targetInfos'])):
            raise RuntimeError('the administrator\'s ExtensionInstallForcelist did not install %s' % self.id)

    def write_policy(self):
        if not self.portal_origin:
            return
        if os.geteuid() != 0:
            self.policy_note = 'not root: no Chromium policy in %s' % POLICY_DIR
            return
        folder, missing = POLICY_DIR, []  # the folders this run makes, from the deepest
        while not os.path.isdir(folder):
            missing.append(folder)
            folder = os.path.dirname(folder)
        os.makedirs(POLICY_DIR, 0o755, exist_ok=True)
        fd, path = tempfile.mkstemp(prefix='passway-e2e-', suffix='.json', dir=POLICY_DIR)
        self.policy_made = [path] + missing
        with os.fdopen(fd, 'w') as f:
            json.dump({'3rdparty': {'extensions': {self.id: self.policy_settings()}}}, f)
        os.chmod(path, 0o644)
        self.policy = path

    def write_private_policy(self, run):
        """The packed extension and its update manifest on the portal's server, and a policy that force-installs
        it and approves the portal, in a folder that stands in /etc/chromium for this browser alone."""
        site = os.path.join(run.work, 'site')
        shutil.copy(os.path.join(self.build, 'extension', 'passway-chromium.crx'), site)
        update = subprocess.run([os.path.join(self.build, 'tools', 'passway-crx'), 'update-manifest', self.id, '1.0',
                                 '%s/passway-chromium.crx' % self.portal_origin], capture_output=True, text=True, check=True)
        with open(os.path.join(site, 'update.xml'), 'w') as f:
            f.write(update.stdout)
        self.private_etc = os.path.join(run.work, 'etc-chromium')
        managed = os.path.join(self.private_etc, 'policies', 'managed')
        os.makedirs(managed)
        self.policy = os.path.join(managed, 'passway.json')
        with open(self.policy, 'w') as f:
            # DeveloperToolsAvailability 1: the run drives the popup of a force-installed extension over DevTools.
            json.dump({'ExtensionInstallForcelist': ['%s;%s/update.xml' % (self.id, self.portal_origin)],
                       'DeveloperToolsAvailability': 1,
                       '3rdparty': {'extensions': {self.id: self.policy_settings()}}}, f)

    def remove_policy(self):
        for path in self.policy_made:  # the file, then the folders from the deepest
            try:
                os.rmdir(path) if os.path.isdir(path) else os.remove(path)
            except OSError as error:
                print('e2e (chromium): could not remove %s: %s' % (path, error))
        self.policy_made = []

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
        try:
            if self.browser:
                self.browser.close()
                self.browser = None
        finally:
            self.remove_policy()
