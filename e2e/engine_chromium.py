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

    def __init__(self, build, source, host, window=False, installed=False):
        super().__init__(build, source, host, window, installed)
        self.browser = None
        self.policy_made = []  # the policy file and the folders made for it, removed at the end

    def launch(self, run):
        """A fresh profile in the run's folder, with the host manifest pointing at the host; the policy."""
        self.id = extension_id(self.extension)
        profile = os.path.join(run.work, 'chromium-profile')
        hosts = os.path.join(profile, 'NativeMessagingHosts')
        os.makedirs(hosts)
        if not self.installed:  # the installed package's manifest is in /etc/chromium/native-messaging-hosts
            manifest = self.host_manifest()
            if manifest['allowed_origins'] != ['chrome-extension://%s/' % self.id]:
                raise RuntimeError('the host manifest does not name the extension ID %s that its key gives' % self.id)
            self.manifest_file = os.path.join(hosts, HOST_NAME + '.json')
            with open(self.manifest_file, 'w') as f:
                json.dump(manifest, f)
        self.write_policy()
        ours = [] if self.installed else ['--load-extension=' + self.extension]
        argv = [self.program] + ([] if self.window else ['--headless=new']) + [
            '--no-sandbox', '--user-data-dir=' + profile, '--no-first-run', '--disable-gpu', '--disable-dev-shm-usage',
            '--disable-background-networking', '--disable-component-update', '--disable-sync'] + ours + [
            '--remote-debugging-pipe', '--window-size=800,500', '--enable-logging=stderr', '--v=0', 'about:blank']
        with open(self.log_path, 'w') as log:
            self.browser = DevToolsPipe(argv, self.env, log)
        self.browser_pid = self.browser.process.pid

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
            json.dump({'3rdparty': {'extensions': {self.id: {'approvedOrigins': [self.portal_origin]}}}}, f)
        os.chmod(path, 0o644)
        self.policy = path

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
