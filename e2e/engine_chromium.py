"""The Chromium engine of the end-to-end run: headless Chromium with the Passway extension as built for Chromium
(build/extension/chromium/, loaded unpacked) and passway-host, driven over the DevTools pipe. What the visits
do with it is in engine_bridge.py.

The administrator's policy: Chromium reads managed policies only from the system-wide folder
/etc/chromium/policies/managed/, and merges the files it finds there: two runs side by side, each with a file
approving its own portal, would each see one of the two lists. Run as root, the engine writes its policy into a
folder of the run's own that stands in /etc/chromium for this browser alone (a bind mount in the browser's own
mount namespace; for an installed package's run, a copy of the real /etc/chromium, which holds the package's
host manifest); the real folder is never written. Otherwise the portal is approved in the popup."""
import base64
import os
import shutil
import subprocess

from demo_setup import read
from devtools_pipe import DevToolsPipe
from engine_bridge import BridgeEngine, poll, write_json

CHROMIUM = '/usr/lib/chromium/chromium'
ETC = '/etc/chromium'


class ChromiumEngine(BridgeEngine):
    name = 'chromium'
    program = CHROMIUM
    installed_program = '/usr/bin/chromium'  # Debian's launcher: it loads /usr/share/chromium/extensions/*
    installed_extension = '/usr/share/chromium/extensions/passway'

    def __init__(self, build, source, host, window=False, installed=False, forcelist=False):
        super().__init__(build, source, host, window, installed)
        # forcelist: the extension installed by the administrator's ExtensionInstallForcelist from the packed
        # CRX and its update manifest, served by the portal's server (root only: the policy lives in a mount
        # namespace of the browser's own, where a private folder stands in /etc/chromium, so that no other
        # Chromium on the machine sees it)
        self.forcelist, self.build = forcelist, build
        self.browser = self.private_etc = None  # private_etc: the run's folder that stands in /etc/chromium

    def launch(self, run):
        """A fresh profile in the run's folder, with the host manifest pointing at the host; the policy."""
        self.id = read(os.path.join(self.build, 'extension', 'chromium-id.txt')).strip()  # what the key gives
        self.extension_base = 'chrome-extension://' + self.id
        profile = os.path.join(run.work, 'chromium-profile')
        if not self.installed:  # the installed package's manifest is in /etc/chromium/native-messaging-hosts
            self.write_host_manifest(run, os.path.join(profile, 'NativeMessagingHosts'))
        self.write_policy(run)
        ours = [] if self.installed or self.forcelist else ['--load-extension=' + self.extension]
        argv = [self.program] + ([] if self.window else ['--headless=new']) + [
            '--no-sandbox', '--user-data-dir=' + profile, '--no-first-run', '--disable-gpu', '--disable-dev-shm-usage',
            '--disable-background-networking', '--disable-component-update', '--disable-sync'] + ours + [
            # Names under .test are other sites on the portal's server (plain http, not loopback by name).
            '--host-resolver-rules=MAP *.test 127.0.0.1', '--disable-features=HttpsUpgrades',
            '--remote-debugging-pipe', '--window-size=800,500', '--enable-logging=stderr', '--v=0', 'about:blank']
        if self.forcelist:
            # The packed extension and its update manifest on the portal's server, for the policy; the forced
            # install is a download that background networking would stop.
            shutil.copy(os.path.join(self.build, 'extension', 'passway-chromium.crx'), os.path.join(run.work, 'site'))
            update = subprocess.run([os.path.join(self.build, 'tools', 'passway-crx'), 'update-manifest', self.id, '1.0',
                                     '%s/passway-chromium.crx' % self.portal_origin], capture_output=True, text=True,
                                    check=True)
            with open(os.path.join(run.work, 'site', 'update.xml'), 'w') as f:
                f.write(update.stdout)
            argv.remove('--disable-background-networking')
        if self.private_etc:
            argv = ['unshare', '--mount', '--propagation', 'private', 'sh', '-c',
                    'mount --bind "$0" %s && exec "$@"' % ETC, self.private_etc] + argv
        with open(self.log_path, 'w') as log:
            self.browser = DevToolsPipe(argv, self.env, log)
        self.browser_pid = self.browser.process.pid
        if self.forcelist and not poll(lambda: any(
                target['url'].startswith(self.extension_base + '/')
                for target in self.browser.command('Target.getTargets')['targetInfos'])):
            raise RuntimeError('the administrator\'s ExtensionInstallForcelist did not install %s' % self.id)

    def write_policy(self, run):
        """The administrator's policy approving the portal (and, for a forcelist run, installing the extension),
        in the run's own stand-in for /etc/chromium (root only: otherwise the popup approves the portal)."""
        if not self.portal_origin or os.geteuid() != 0:
            return
        self.private_etc = os.path.join(run.work, 'etc-chromium')
        if not os.path.isdir(self.private_etc) and os.path.isdir(ETC):
            shutil.copytree(ETC, self.private_etc, symlinks=True)
        policy = {'3rdparty': {'extensions': {self.id: self.policy_settings()}}}
        if self.forcelist:
            # DeveloperToolsAvailability 1: the run drives the popup of a force-installed extension over DevTools.
            policy.update({'ExtensionInstallForcelist': ['%s;%s/update.xml' % (self.id, self.portal_origin)],
                           'DeveloperToolsAvailability': 1})
        self.policy = os.path.join(self.private_etc, 'policies', 'managed', 'passway.json')
        write_json(self.policy, policy)

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
        return None if 'exceptionDetails' in result else result['result'].get('value')

    def go(self, tab, url):
        self.browser.command('Page.navigate', {'url': url}, session=tab['session'])
        poll(lambda: self.evaluate(tab, 'location.href') == url)

    def screenshot(self, tab, path):
        shot = self.browser.command('Page.captureScreenshot', {'format': 'png'}, session=tab['session'])
        with open(path, 'wb') as f:
            f.write(base64.b64decode(shot['data']))

    def quit(self):
        if self.browser:
            self.browser.close()
            self.browser = None
