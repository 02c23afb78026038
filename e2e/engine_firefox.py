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

from demo_setup import read
from engine_bridge import HOST_NAME, BridgeEngine, poll, write_json
from marionette import Marionette

FIREFOX = '/usr/lib/firefox-esr/firefox-esr'
EXTENSION_UUID = '7d1f3a52-6c0e-4b8e-9a35-0e2e50a55a11'  # the extension's pages: moz-extension://UUID/
POLICIES = '/etc/firefox/policies/policies.json'  # Debian's firefox-esr reads the administrator's policies here


class FirefoxEngine(BridgeEngine):
    name = 'firefox'
    program = FIREFOX
    installed_program = '/usr/bin/firefox-esr'
    installed_extension = '/usr/share/mozilla/extensions/{ec8030f7-c20a-464f-9b0e-13a3a9e97384}/passway@orvane.com'
    extension_base = 'moz-extension://' + EXTENSION_UUID

    def __init__(self, build, source, host, window=False, installed=False):
        super().__init__(build, source, host, window, installed)
        self.xpi = os.path.join(build, 'extension', 'passway-firefox.xpi')
        self.marionette = None
        self.current = None  # the tab Marionette's commands go to
        self.policy_made = None  # what quit removes: the system policy file, or the topmost folder made for it

    def launch(self, run):
        with open(os.path.join(self.extension, 'manifest.json')) as f:
            self.id = json.load(f)['browser_specific_settings']['gecko']['id']
        mozilla = os.path.join(run.home, '.mozilla')
        if not self.installed:  # the package's manifest is in /usr/lib/mozilla/native-messaging-hosts
            self.write_host_manifest(run, os.path.join(mozilla, 'native-messaging-hosts'))
        if self.portal_origin and self.installed:  # the system's policies.json, as an administrator's
            if os.path.exists(POLICIES):
                raise RuntimeError('%s exists: an installed run will not replace an administrator\'s policies' % POLICIES)
            self.policy = self.policy_made = POLICIES
            while not os.path.isdir(os.path.dirname(self.policy_made)):
                self.policy_made = os.path.dirname(self.policy_made)
            write_json(POLICIES, {'policies': {'3rdparty': {'Extensions': {self.id: self.policy_settings()}}}})
        elif self.portal_origin:
            self.policy = os.path.join(mozilla, 'managed-storage', self.id + '.json')
            write_json(self.policy, {'name': self.id, 'description': 'Passway: the portals approved ahead',
                                     'type': 'storage', 'data': self.policy_settings()})

        profile = os.path.join(run.work, 'firefox-profile')
        installed_xpi = os.path.join(profile, 'extensions', self.id + '.xpi')
        os.makedirs(os.path.dirname(installed_xpi), exist_ok=True)
        if not self.installed and not os.path.exists(installed_xpi):  # a copy anew would be an update at restart
            shutil.copy(self.xpi, installed_xpi)
        prefs = {
            # The extension's pages at a fixed address; Marionette on any free port (written to
            # MarionetteActivePort); the extension's console in the browser log.
            'extensions.webextensions.uuids': json.dumps({self.id: EXTENSION_UUID}), 'marionette.port': 0,
            'devtools.console.stdout.chrome': True,
            # No first-run pages, reports or updates.
            'browser.shell.checkDefaultBrowser': False, 'datareporting.policy.dataSubmissionEnabled': False,
            'toolkit.telemetry.reportingpolicy.firstRun': False, 'browser.startup.homepage_override.mstone': 'ignore',
            'app.update.disabledForTesting': True,
            # Every name is the portal's server: names under .test are other sites on it (plain http, not
            # loopback by name), tried over http as typed.
            'network.dns.forceResolve': '127.0.0.1', 'dom.security.https_first': False,
            'dom.security.https_first_schemeless': False,
            # A run restarts the browser on its profile: it starts with one blank tab, none restored.
            'browser.sessionstore.resume_from_crash': False, 'browser.startup.page': 0,
        }
        if not self.installed:  # the profile's own extension, not signed, starts enabled
            prefs.update({'xpinstall.signatures.required': False, 'extensions.autoDisableScopes': 0})
        with open(os.path.join(profile, 'user.js'), 'w') as f:
            f.writelines('user_pref(%s, %s);\n' % (json.dumps(name), json.dumps(value)) for name, value in prefs.items())

        argv = [self.program] + ([] if self.window else ['--headless']) + [
            '--no-remote', '--marionette', '-remote-allow-system-access', '--profile', profile, 'about:blank']
        with open(self.log_path, 'w') as log:
            process = subprocess.Popen(argv, env=self.env, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                       start_new_session=True)
        self.browser_pid = process.pid
        port = poll(lambda: read(os.path.join(profile, 'MarionetteActivePort')).strip() or process.poll() is not None)
        if not str(port).isdigit():
            raise RuntimeError('Firefox did not start Marionette (exit %s)' % process.poll())
        self.marionette = Marionette(int(port))
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
        if not url.startswith('moz-extension:'):
            tab = self.command('WebDriver:NewWindow', {'type': 'tab', 'focus': True})['handle']
            self.command('WebDriver:Navigate', {'url': url}, tab=tab)
            return tab
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
            handles = set(self.marionette.command('WebDriver:GetWindowHandles')) - before
            pages = [h for h in handles if (self.evaluate(h, 'location.href') or '').startswith('moz-extension:')]
            return pages[0] if pages else None
        tab = poll(shown)
        if not tab:
            raise RuntimeError('no tab opened for %s' % url)
        return tab

    def close_tab(self, tab):
        self.command('WebDriver:CloseWindow', tab=tab)
        self.current = None
        if self.tab and tab != self.tab:  # new windows open from a live one
            self.command('WebDriver:SwitchToWindow', {'handle': self.tab, 'focus': True})
            self.current = self.tab

    def evaluate(self, tab, expression):
        try:
            return self.command('WebDriver:ExecuteScript', {'script': 'return (%s);' % expression, 'args': []}, tab=tab)
        except RuntimeError as error:
            if 'javascript error' in str(error) or 'no such window' in str(error):
                return None  # the page threw, or is not there yet
            raise

    def go(self, tab, url):
        self.command('WebDriver:Navigate', {'url': url}, tab=tab)

    def screenshot(self, tab, path):
        shot = self.command('WebDriver:TakeScreenshot', {'full': False}, tab=tab)
        with open(path, 'wb') as f:
            f.write(base64.b64decode(shot))

    def quit(self):
        """Asks Firefox to quit; BridgeEngine.close ends what lingers of its session. Removes a system
        policy it wrote."""
        try:
            if self.marionette:
                with contextlib.suppress(RuntimeError):
                    self.marionette.command('Marionette:Quit', {'flags': ['eForceQuit']})
                self.marionette.close()
                self.marionette = None
        finally:
            if self.policy_made:
                shutil.rmtree(self.policy_made) if os.path.isdir(self.policy_made) else os.remove(self.policy_made)
                self.policy_made = None
