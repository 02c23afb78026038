"""The Chromium engine of the end-to-end run: headless Chromium with the Passway extension (extension/) and
passway-host, driven over the DevTools pipe. One browser and one tab serve the shared visits: leaving a page
navigates the tab to about:blank, so the tab's host (and the plug-in in it) lives on across pages, as it
does for a user. The first page of the portal's origin waits for approval: the engine gives it the way a
user does, in the extension's popup ("Allow this portal")."""
import base64
import hashlib
import json
import os
import re
import time
import urllib.parse

from devtools_pipe import DevToolsPipe

CHROMIUM = '/usr/lib/chromium/chromium'
HOST_NAME = 'com.orvane.passway'
WAIT = 60  # seconds: the longest wait for anything a visit expects


def extension_id(extension_dir):
    """The ID that the manifest's "key" fixes: the first 32 hex digits of SHA-256 of the key, as a-p."""
    with open(os.path.join(extension_dir, 'manifest.json')) as f:
        key = base64.b64decode(json.load(f)['key'])
    return ''.join(chr(ord('a') + int(digit, 16)) for digit in hashlib.sha256(key).hexdigest()[:32])


def poll(condition, seconds=WAIT, step=0.1):
    """condition's first true value within `seconds`, else its last value."""
    deadline = time.monotonic() + seconds
    while True:
        value = condition()
        if value or time.monotonic() > deadline:
            return value
        time.sleep(step)


class ChromiumEngine:
    name = 'chromium'
    screenshot_name = 'portal-after-install-chromium.png'
    bridge = True  # the plug-in runs in passway-host: the bridge's own checks apply

    def __init__(self, build, source, host):
        self.extension = os.path.join(source, 'extension')
        self.host = os.path.realpath(host) if host else ''
        self.id = extension_id(self.extension)
        self.browser = None
        self.tab = None
        self.approved = set()
        self._timings = {}
        self.approved_at = None

    def missing(self):
        if not os.access(CHROMIUM, os.X_OK):
            return 'Chromium (apt package chromium) is missing'
        if not os.access(self.host, os.X_OK):
            return 'passway-host is not built (%s)' % self.host
        return None

    def start(self, run):
        """A fresh profile in the run's folder, with the host manifest pointing at the host."""
        profile = os.path.join(run.work, 'chromium-profile')
        hosts = os.path.join(profile, 'NativeMessagingHosts')
        os.makedirs(hosts)
        with open(os.path.join(self.extension, 'host-manifest', HOST_NAME + '.json.in')) as f:
            manifest = f.read().replace('@PASSWAY_HOST_PATH@', self.host)
        if json.loads(manifest)['allowed_origins'] != ['chrome-extension://%s/' % self.id]:
            raise RuntimeError('the host manifest does not name the extension ID %s that its key gives' % self.id)
        with open(os.path.join(hosts, HOST_NAME + '.json'), 'w') as f:
            f.write(manifest)
        # The browser's own log, kept after the run for a look when something failed.
        self.log_path = os.path.join(run.build, 'e2e', 'chromium-browser.log')
        os.makedirs(os.path.dirname(self.log_path), exist_ok=True)
        env = dict(run.env, PASSWAY_HOST_PLUGIN=os.path.join(run.plugins, 'libtunvo_plugin_testroot.so'))
        argv = [CHROMIUM, '--headless=new', '--no-sandbox', '--user-data-dir=' + profile, '--no-first-run',
                '--disable-gpu', '--disable-dev-shm-usage', '--disable-background-networking',
                '--disable-component-update', '--disable-sync', '--load-extension=' + self.extension,
                '--remote-debugging-pipe', '--window-size=800,500', '--enable-logging=stderr', '--v=0',
                'about:blank']
        self.launched = time.time()
        with open(self.log_path, 'w') as log:
            self.browser = DevToolsPipe(argv, env, log)
        self.tab = self.open_tab('about:blank')

    # ---- tabs ----------------------------------------------------------------------------------
    def open_tab(self, url):
        target = self.browser.command('Target.createTarget', {'url': url})['targetId']
        session = self.browser.command('Target.attachToTarget', {'targetId': target, 'flatten': True})['sessionId']
        return {'target': target, 'session': session}

    def close_tab(self, tab):
        self.browser.command('Target.closeTarget', {'targetId': tab['target']})

    def evaluate(self, tab, expression, wait=False):
        """The expression's value in the tab's page (with wait, the value its promise gives), or None when it
        throws (the page is not there yet)."""
        result = self.browser.command('Runtime.evaluate', {'expression': expression, 'returnByValue': True,
                                                           'awaitPromise': wait}, session=tab['session'])
        if 'exceptionDetails' in result:
            return None
        return result['result'].get('value')

    def holds(self, tab, expression):
        return bool(self.evaluate(tab, '(function () { try { return !!(%s); } catch (e) { return false; } })()'
                                  % expression))

    def go(self, tab, url):
        self.browser.command('Page.navigate', {'url': url}, session=tab['session'])
        poll(lambda: self.evaluate(tab, 'location.href') == url)

    def loaded(self, tab):
        """Waits until the tab's page has loaded (its elements are in)."""
        return poll(lambda: self.evaluate(tab, 'document.readyState') == 'complete')

    def page_state(self, tab):
        return (self.evaluate(tab, 'typeof transcript == "undefined" ? [] : transcript') or [],
                self.evaluate(tab, "document.getElementById('status') ? document.getElementById('status').textContent : ''"))

    # ---- approval, as a user gives it ------------------------------------------------------------
    def popup(self, origin):
        return self.open_tab('chrome-extension://%s/popup.html?origin=%s' % (self.id, urllib.parse.quote(origin, safe='')))

    def allow_button(self, origin):
        return 'document.querySelector(%s)' % json.dumps('button[data-origin="%s"]' % origin)

    def waits_for_approval(self, origin):
        """Whether the extension's popup offers "Allow this portal" for the origin (within the wait), and
        the toolbar badge and title of the tab that shows the origin's page."""
        popup = self.popup(origin)
        try:
            asked = poll(lambda: self.holds(popup, self.allow_button(origin)))
            signal = self.evaluate(popup, """chrome.tabs.query({}).then(async (tabs) => {
                const tab = tabs.find((t) => (t.url || '').startsWith(%s + '/'));
                return tab ? [await chrome.action.getBadgeText({tabId: tab.id}),
                              await chrome.action.getTitle({tabId: tab.id})] : [null, null];
            })""" % json.dumps(origin), wait=True) or [None, None]
            return asked, signal[0], signal[1]
        finally:
            self.close_tab(popup)

    def approve(self, origin):
        popup = self.popup(origin)
        try:
            if not poll(lambda: self.holds(popup, self.allow_button(origin))):
                raise RuntimeError('the popup never offered "Allow this portal" for %s' % origin)
            self._timings.setdefault('launch to the first page waiting for approval', time.time() - self.launched)
            self.evaluate(popup, self.allow_button(origin) + '.click()')
            self.approved_at = self.approved_at or time.time()
            if not poll(lambda: self.holds(popup, "document.body.textContent.indexOf('Allowed') >= 0")):
                raise RuntimeError('the popup did not confirm the approval of %s' % origin)
        finally:
            self.close_tab(popup)
        self.approved.add(origin)

    # ---- the shared visits ------------------------------------------------------------------------
    def visit(self, url, until, screenshot=None):
        """Opens url in the tab (approving its origin when it first asks), waits until the JavaScript
        expression `until` holds, reads the page, takes the screenshot, and leaves the page."""
        self.go(self.tab, url)
        origin = '%s://%s' % urllib.parse.urlsplit(url)[:2]
        if origin not in self.approved:
            self.loaded(self.tab)
            self.approve(origin)
        poll(lambda: self.holds(self.tab, until))
        page, status = self.page_state(self.tab)
        if screenshot:
            shot = self.browser.command('Page.captureScreenshot', {'format': 'png'}, session=self.tab['session'])
            with open(screenshot, 'wb') as f:
                f.write(base64.b64decode(shot['data']))
        self.go(self.tab, 'about:blank')
        return page, status

    # ---- what the bridge's own checks look at ----------------------------------------------------
    def host_processes(self):
        """The pids of this browser's running hosts."""
        pids = []
        for name in os.listdir('/proc'):
            if not name.isdigit():
                continue
            try:
                argv = open('/proc/%s/cmdline' % name, 'rb').read().split(b'\0')
                session = os.getsid(int(name))
            except OSError:
                continue
            if session == self.browser.process.pid and any(
                    os.path.realpath(arg.decode(errors='replace')) == self.host for arg in argv[:2] if arg):
                pids.append(int(name))
        return pids

    @property
    def timings(self):
        """Seconds from the launch to the first page waiting for approval, and from the launch and from
        the approval to the host's first message (the extension logs its "ready")."""
        found = dict(self._timings)
        ready = self._logged_at('passway: host ready')
        if ready is not None and self.approved_at is not None:
            found["approval to the host's first message"] = ready - self.approved_at
            found["launch to the host's first message (the approval included)"] = ready - self.launched
        return found

    def _logged_at(self, text):
        """The wall-clock time of the browser log's first line holding text (its stamp: MMDD/HHMMSS.micro)."""
        with open(self.log_path, errors='replace') as f:
            for line in f:
                stamp = re.search(r':(\d\d)(\d\d)/(\d\d)(\d\d)(\d\d)(\.\d+):', line)
                if text in line and stamp:
                    month, day, hour, minute, second = (int(part) for part in stamp.groups()[:5])
                    year = time.localtime().tm_year
                    return time.mktime((year, month, day, hour, minute, second, 0, 0, -1)) + float(stamp.group(6))
        return None

    def log_tail(self):
        with open(self.log_path, errors='replace') as f:
            lines = [line for line in f if 'passway' in line or 'CONSOLE' in line or 'NativeMessaging' in line]
        return 'browser log (passway lines, tail):\n' + ''.join(lines[-40:])

    def close(self):
        if self.browser:
            self.browser.close()
            self.browser = None
