"""The Firefox engine of the end-to-end run: headless Firefox ESR with the Passway extension as built for Firefox
(build/extension/passway-firefox.xpi) and passway-host, driven over Marionette (marionette.py). What the
visits do with it is in engine_bridge.py.

Everything lives in the run's temporary folder: a fresh profile holding the unsigned extension
(extensions/ID.xpi, with xpinstall.signatures.required off: Firefox ESR honours that) and user.js, and the
run's home folder, where Firefox looks for what is per user:
- HOME/.mozilla/native-messaging-hosts/com.orvane.passway.json, the host manifest;
- HOME/.mozilla/managed-storage/ID.json, the administrator's policy: the managed storage manifest that gives
  the extension its storage.managed `approvedOrigins` (system-wide its folder is
  /usr/lib/mozilla/managed-storage/; Firefox reads a policies.json only from system-wide folders).
The extension's pages get a fixed address (the extensions.webextensions.uuids pref), so the engine can open
the popup as a tab; Marionette opens such a page only from the browser's own chrome, which needs
-remote-allow-system-access."""
import base64
import contextlib
import json
import os
import shutil
import subprocess
import urllib.parse

from demo_setup import read
from engine_bridge import HOST_NAME, BridgeEngine, poll
from marionette import Marionette, MarionetteError

FIREFOX = '/usr/lib/firefox-esr/firefox-esr'
EXTENSION_UUID = '7d1f3a52-6c0e-4b8e-9a35-0e2e50a55a11'  # the extension's pages: moz-extension://UUID/


POLICIES = '/etc/firefox/policies/policies.json'  # Debian's firefox-esr reads the administrator's policies here


class FirefoxEngine(BridgeEngine):
    name = 'firefox'
    program = FIREFOX
    installed_program = '/usr/bin/firefox-esr'
    installed_extension = '/usr/share/mozilla/extensions/{ec8030f7-c20a-464f-9b0e-13a3a9e97384}/passway@orvane.com'

    log_words = ('passway', 'native')

    def __init__(self, build, source, host, window=False, installed=False):
        super().__init__(build, source, host, window, installed)
        self.policy_made = []  # the system policy file and the folders made for it (installed runs)
        self.xpi = os.path.join(build, 'extension', 'passway-firefox.xpi')
        self.process = None
        self.marionette = None
        self.current = None  # the tab Marionette's commands go to

    def launch(self, run):
        with open(os.path.join(self.extension, 'manifest.json')) as f:
            self.id = json.load(f)['browser_specific_settings']['gecko']['id']
        mozilla = os.path.join(run.home, '.mozilla')
        if self.installed:  # the package's manifest, extension and policy folder, as an administrator's
            self.manifest_file = '/usr/lib/mozilla/native-messaging-hosts/' + HOST_NAME + '.json'
            if self.portal_origin:
                self.write_system_policy()
        else:
            manifest = self.host_manifest(run)
            if manifest['allowed_extensions'] != [self.id]:
                raise RuntimeError('the host manifest does not name the extension %s' % self.id)
            self.manifest_file = os.path.join(mozilla, 'native-messaging-hosts', HOST_NAME + '.json')
            write_json(self.manifest_file, manifest)
        if self.portal_origin and not self.installed:
            self.policy = os.path.join(mozilla, 'managed-storage', self.id + '.json')
            write_json(self.policy, {'name': self.id, 'description': 'Passway: the portals approved ahead',
                                     'type': 'storage', 'data': self.policy_settings()})

        profile = os.path.join(run.work, 'firefox-profile')
        os.makedirs(os.path.join(profile, 'extensions'), exist_ok=True)
        prefs = {} if self.installed else {
            'xpinstall.signatures.required': False,   # the extension is not signed
            'extensions.autoDisableScopes': 0,         # a profile's own extension starts enabled
        }
        installed_xpi = os.path.join(profile, 'extensions', self.id + '.xpi')
        if not self.installed and not os.path.exists(installed_xpi):  # a copy anew would be an update at restart
            shutil.copy(self.xpi, installed_xpi)
        prefs.update({
            'extensions.webextensions.uuids': json.dumps({self.id: EXTENSION_UUID}),
            'marionette.port': 0,                      # any free port, written to MarionetteActivePort
            'devtools.console.stdout.chrome': True,    # the extension's console goes to the browser log
            'browser.shell.checkDefaultBrowser': False,
            'datareporting.policy.dataSubmissionEnabled': False,
            'toolkit.telemetry.reportingpolicy.firstRun': False,
            'browser.startup.homepage_override.mstone': 'ignore',
            'app.update.disabledForTesting': True,
            # Every name is the portal's server: names under .test are other sites on it (plain http, not
            # loopback by name), tried over http as typed.
            'network.dns.forceResolve': '127.0.0.1',
            'dom.security.https_first': False,
            'dom.security.https_first_schemeless': False,
            # A run restarts the browser on its profile: it starts with one blank tab, none restored.
            'browser.sessionstore.resume_from_crash': False,
            'browser.startup.page': 0,
        })
        with open(os.path.join(profile, 'user.js'), 'w') as f:
            f.writelines('user_pref(%s, %s);\n' % (json.dumps(name), json.dumps(value)) for name, value in prefs.items())

        argv = [self.program] + ([] if self.window else ['--headless']) + [
            '--no-remote', '--marionette', '-remote-allow-system-access', '--profile', profile, 'about:blank']
        with open(self.log_path, 'w') as log:
            self.process = subprocess.Popen(argv, env=self.env, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                            start_new_session=True)
        self.browser_pid = self.process.pid
        port_file = os.path.join(profile, 'MarionetteActivePort')
        port = poll(lambda: read_port(port_file) or (self.process.poll() is not None and -1))
        if not port or port < 0:
            raise RuntimeError('Firefox did not start Marionette (exit %s)' % self.process.poll())
        self.marionette = Marionette(port)
        self.marionette.command('WebDriver:NewSession', {'capabilities': {'alwaysMatch': {'pageLoadStrategy': 'normal'}}})
        self.current = self.marionette.command('WebDriver:GetWindowHandle')
        self.marionette.command('WebDriver:SetWindowRect', {'width': 800, 'height': 600})

    # ---- tabs ----------------------------------------------------------------------------------
    def command(self, name, parameters=None, tab=None):
        if tab is not None and tab != self.current:
            self.marionette.command('WebDriver:SwitchToWindow', {'handle': tab, 'focus': True})
            self.current = tab
        return self.marionette.command(name, parameters)

    def open_tab(self, url):
        if url.startswith('moz-extension:'):
            # A web page cannot open the extension's pages, nor can Marionette navigate to them: the browser
            # window's own script can.
            before = set(self.marionette.command('WebDriver:GetWindowHandles'))
            self.marionette.command('Marionette:SetContext', {'value': 'chrome'})
            try:
                self.marionette.command('WebDriver:ExecuteScript', {'script': """
                    gBrowser.selectedTab = gBrowser.addTab(arguments[0], {
                        triggeringPrincipal: Services.scriptSecurityManager.getSystemPrincipal()});""",
                    'args': [url]})
            finally:
                self.marionette.command('Marionette:SetContext', {'value': 'content'})
            # The tab moves to the extension's process once it loads the page, and its first handle may go
            # with the move: the tab is the new handle that shows the page.
            def shown():
                for handle in set(self.marionette.command('WebDriver:GetWindowHandles')) - before:
                    if (self.evaluate(handle, 'location.href') or '').startswith('moz-extension:'):
                        return handle
                return None
            tab = poll(shown)
            if not tab:
                raise RuntimeError('no tab opened for %s' % url)
        else:
            tab = self.command('WebDriver:NewWindow', {'type': 'tab', 'focus': True})['handle']
            self.command('WebDriver:Navigate', {'url': url}, tab=tab)
        return tab

    def close_tab(self, tab):
        self.command('WebDriver:CloseWindow', tab=tab)
        self.current = None
        if self.tab and tab != self.tab:  # new windows open from a live one
            self.command('WebDriver:SwitchToWindow', {'handle': self.tab, 'focus': True}, tab=None)
            self.current = self.tab

    def evaluate(self, tab, expression):
        try:
            return self.command('WebDriver:ExecuteScript', {'script': 'return (%s);' % expression, 'args': []}, tab=tab)
        except MarionetteError as error:
            if 'javascript error' in str(error) or 'no such window' in str(error):
                return None  # the page threw, or is not there yet
            raise

    def go(self, tab, url):
        self.command('WebDriver:Navigate', {'url': url}, tab=tab)

    def screenshot(self, tab, path):
        shot = self.command('WebDriver:TakeScreenshot', {'full': False}, tab=tab)
        with open(path, 'wb') as f:
            f.write(base64.b64decode(shot))

    def popup_url(self, origin):
        return 'moz-extension://%s/popup.html?origin=%s' % (EXTENSION_UUID, urllib.parse.quote(origin, safe=''))

    def write_system_policy(self):
        """The administrator's policy approving the portal, in the system's policies.json (none may be there)."""
        if os.path.exists(POLICIES):
            raise RuntimeError('%s exists: an installed run will not replace an administrator\'s policies' % POLICIES)
        folder = os.path.dirname(POLICIES)
        while not os.path.isdir(folder):
            self.policy_made.append(folder)
            folder = os.path.dirname(folder)
        write_json(POLICIES, {'policies': {'3rdparty': {'Extensions': {self.id: self.policy_settings()}}}})
        self.policy_made.insert(0, POLICIES)
        self.policy = POLICIES

    def quit(self):
        """Asks Firefox to quit; BridgeEngine.close ends what lingers of its session. Removes a system
        policy it wrote."""
        try:
            if self.marionette:
                with contextlib.suppress(MarionetteError):
                    self.marionette.command('Marionette:Quit', {'flags': ['eForceQuit']})
                self.marionette.close()
                self.marionette = None
        finally:
            for path in self.policy_made:  # the file, then the folders from the deepest
                with contextlib.suppress(OSError):
                    os.rmdir(path) if os.path.isdir(path) else os.remove(path)
            self.policy_made = []


def write_json(path, value):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, 'w') as f:
        json.dump(value, f, indent=2)


def read_port(path):
    text = read(path).strip()
    return int(text) if text.isdigit() else None
