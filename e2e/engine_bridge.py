"""What the two engines of today's browsers share (engine_chromium.py, engine_firefox.py): the plug-in runs in
passway-host, reached through the Passway extension built for that browser (build/extension/BROWSER/). One
browser and one tab serve the shared visits: leaving a page navigates the tab to about:blank, so the tab's host
(and the plug-in in it) lives on across pages, as it does for a user.

A portal origin is approved in one of two ways, both exercised by a run:
- the administrator's managed policy `approvedOrigins`, written before the browser starts, approves the demo
  portal's origin (http://127.0.0.1:PORT): its visits proceed with no one asked. Where a browser's policy
  cannot be written (Chromium's is system-wide: only root may), the first visit approves that origin in the
  popup instead;
- the user's click on "Allow this portal" in the extension's popup (opened as a tab, popup.html?origin=O),
  for the other origin (http://localhost:PORT) in the bridge's own visit.

A browser driver provides: launch(run) (host manifest, policy, the browser), extension_base (where the
extension's pages are), open_tab(url), close_tab(tab), go(tab, url), evaluate(tab, expression) (the value,
awaited when a promise, or None when it throws), screenshot(tab, path), browser_pid, quit()."""
import contextlib
import json
import os
import shlex
import urllib.parse

from demo_setup import poll, read

HOST_NAME = 'com.orvane.passway'


def write_json(path, value):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, 'w') as f:
        json.dump(value, f, indent=2)


class BridgeEngine:
    bridge = True  # the plug-in runs in passway-host: the bridge's own checks apply

    def __init__(self, build, source, host, window=False, installed=False):
        # window: a browser window on $DISPLAY instead of a headless browser; installed: the Debian package's
        # host and extension, the browser started by its own launcher with nothing of ours on its command line
        # (the package must be all it needs)
        self.window, self.source, self.installed = window, source, installed
        if installed:
            self.program, host = self.installed_program, '/usr/lib/passway/passway-host'
        self.host = os.path.realpath(host) if host else ''
        self.extension = self.installed_extension if installed else os.path.join(build, 'extension', self.name)
        self.tab = self.policy = None  # the policy: where the administrator's policy approving the portal lives
        self.approved = set()   # origins approved so far, by the policy or in the popup
        self.policy_rules = {}  # the policy's other settings (allowUserApprovals, allowPlainHttp, more origins)

    def missing(self):
        for what, path in [(self.name, self.program), ('passway-host', self.host),
                           ('the extension', os.path.join(self.extension, 'manifest.json'))]:
            if not os.path.exists(path):
                return '%s is missing (%s)' % (what, path)
        return None

    def write_host_manifest(self, run, folder):
        """The browser's host manifest (extension/host-manifest/BROWSER/) in `folder`, naming the extension (its
        `id`) and pointing at the host under test through a script that keeps the host's standard error in
        `host_log` (Firefox keeps none of it)."""
        wrapper = os.path.join(run.work, 'passway-host')
        self.host_log = os.path.join(run.work, 'host.log')
        with open(wrapper, 'w') as f:
            f.write('#!/bin/sh\nexec %s "$@" 2>>%s\n' % (shlex.quote(self.host), shlex.quote(self.host_log)))
        os.chmod(wrapper, 0o755)
        with open(os.path.join(self.source, 'extension', 'host-manifest', self.name, HOST_NAME + '.json.in')) as f:
            text = f.read().replace('@PASSWAY_HOST_PATH@', wrapper).replace('@PASSWAY_EXTENSION_ID@', self.id)
        self.manifest_file = os.path.join(folder, HOST_NAME + '.json')
        write_json(self.manifest_file, json.loads(text))

    def policy_settings(self):
        """What the administrator's policy says to the extension: the portal's origin approved, and the rules."""
        settings = dict(self.policy_rules)
        settings['approvedOrigins'] = [self.portal_origin] + settings.get('approvedOrigins', [])
        return settings

    def restart(self, run, rules):
        """Quits the browser and starts it again on the same profile (the user's approvals kept) with the
        administrator's policy saying these rules: Firefox reads its policy only when it starts."""
        self.close()
        self.policy, self.policy_rules, self.approved = None, rules, set()
        self.start(run)

    def start(self, run):
        """Starts the browser for the run (its work, build, env and plugins; and its port, when it serves the
        demo portal: then the policy approves the portal's origin where the browser allows one)."""
        port = getattr(run, 'port', None)
        self.portal_origin = 'http://127.0.0.1:%d' % port if port else None
        os.makedirs(os.path.join(run.build, 'e2e'), exist_ok=True)
        # The browser's own log, kept after the run for a look when something failed.
        self.log_path = os.path.join(run.build, 'e2e', '%s-browser.log' % self.name)
        # The test plug-in's client lives under the test root, and so does the service the host's guard watches.
        self.env = dict(run.env) if self.installed else \
            dict(run.env, PASSWAY_HOST_PLUGIN=os.path.join(run.plugins, 'libtunvo_plugin_testroot.so'),
                 PASSWAY_HOST_CLIENT_ROOT=getattr(run, 'root', ''))
        self.launch(run)
        self.tab = self.open_tab('about:blank')
        # The extension asks a host once when the browser starts; its answer decides whether pages see the
        # plug-in in navigator.plugins. The popup says what it learnt.
        said = self.button_says()[2]
        if 'Orvane Passway plugin, Ver.' not in said:
            raise RuntimeError('the extension did not learn that the host and the plug-in are there: %r' % said)
        if self.policy:
            self.approved.add(self.portal_origin)

    # ---- pages -----------------------------------------------------------------------------------
    @contextlib.contextmanager
    def opened(self, url):
        """A tab of its own on url while the block runs."""
        tab = self.open_tab(url)
        try:
            yield tab
        finally:
            self.close_tab(tab)

    def holds(self, tab, expression):
        return bool(self.evaluate(tab, '(function () { try { return !!(%s); } catch (e) { return false; } })()'
                                  % expression))

    def loaded(self, tab):
        """Waits until the tab's page has loaded (its elements are in)."""
        return poll(lambda: self.evaluate(tab, 'document.readyState') == 'complete')

    def page_state(self, tab):
        return (self.evaluate(tab, 'typeof transcript == "undefined" ? [] : transcript') or [],
                self.evaluate(tab, "document.getElementById('status') ? document.getElementById('status').textContent : ''"))

    # ---- the extension's popup, opened as a tab --------------------------------------------------
    def popup_url(self, origin=''):
        return '%s/popup.html?origin=%s' % (self.extension_base, urllib.parse.quote(origin, safe=''))

    def click(self, origin, button):
        """Clicks the button (a CSS selector) in the popup for the origin once it shows; waits until it goes."""
        button = 'document.querySelector(%s)' % json.dumps(button)
        with self.opened(self.popup_url(origin)) as popup:
            if not poll(lambda: self.holds(popup, button)):
                raise RuntimeError('the popup never showed %s' % button)
            self.evaluate(popup, button + '.click()')
            if not poll(lambda: not self.holds(popup, button)):
                raise RuntimeError('the popup did not take the click on %s' % button)

    def approve(self, origin):
        """Clicks "Allow this portal" for the origin in the extension's popup."""
        self.click(origin, 'button[data-origin="%s"]' % origin)
        self.approved.add(origin)

    def remove_approval(self, origin):
        """Clicks "Remove" for the origin in the popup's list of approved portals."""
        self.click('', 'button[data-remove="%s"]' % origin)
        self.approved.discard(origin)

    def popup_row(self, origin):
        """What the popup says of the origin waiting in some tab (once it says anything), and whether it offers
        "Allow" for it."""
        with self.opened(self.popup_url(origin)) as popup:
            said = poll(lambda: self.evaluate(popup, "document.getElementById('portals').innerText")) or ''
            return said, self.holds(popup, 'document.querySelector(\'button[data-origin="%s"]\')' % origin)

    def tab_signal(self, page):
        """The toolbar badge and title of the tab whose URL begins with `page`, what the extension keeps as
        waiting in that tab (None: nothing), and the page's own title (read without the page's script)."""
        with self.opened(self.popup_url()) as popup:
            return poll(lambda: self.evaluate(popup, """chrome.tabs.query({}).then(async (tabs) => {
                const tab = tabs.find((t) => (t.url || '').startsWith(%s));
                if (!tab) return [null, null, null, null];
                const key = 'waiting:' + tab.id;
                return [await chrome.action.getBadgeText({tabId: tab.id}), await chrome.action.getTitle({tabId: tab.id}),
                        (await chrome.storage.session.get(key))[key] || null, tab.title];
            })""" % json.dumps(page))) or [None] * 4

    def button_says(self):
        """The toolbar button's badge and title (for every tab) and what the popup says of the host, once it
        says anything."""
        with self.opened(self.popup_url()) as popup:
            said = poll(lambda: self.evaluate(popup, "document.getElementById('host').textContent")) or ''
            badge, title = self.evaluate(popup, 'Promise.all([chrome.action.getBadgeText({}), '
                                                'chrome.action.getTitle({})])') or [None, None]
        return badge, title, said

    # ---- the shared visits ------------------------------------------------------------------------
    def visit(self, url, until, screenshot=None, ready=None, fresh=False):
        """Opens url in the tab (approving its origin in the popup when neither the policy nor the user has),
        waits until the JavaScript expression `until` holds (and `ready()`, when given: the host makes the
        plug-in's instances a moment after the page shows its elements), reads the page, takes the
        screenshot, and leaves the page. `fresh`: in a tab of its own, closed after (its host, and the
        plug-in in it, start anew, as QtWebKit's do for every visit)."""
        tab = self.open_tab('about:blank') if fresh else self.tab
        try:
            self.go(tab, url)
            origin = '%s://%s' % urllib.parse.urlsplit(url)[:2]
            if origin not in self.approved:
                self.loaded(tab)
                self.approve(origin)
            poll(lambda: self.holds(tab, until) and (ready is None or ready()))
            page, status = self.page_state(tab)
            if screenshot:
                self.screenshot(tab, screenshot)
        finally:
            self.close_tab(tab) if fresh else self.go(tab, 'about:blank')
        return page, status

    # ---- what the bridge's own checks look at ----------------------------------------------------
    def log_tail(self):
        with open(self.log_path, errors='replace') as f:
            lines = [line for line in f if any(word in line.lower() for word in ('passway', 'native', 'console'))]
        return 'browser log (passway lines, tail):\n%s\nhost log (tail):\n%s' % (
            ''.join(lines[-40:]), read(getattr(self, 'host_log', ''))[-3000:])

    def host_processes(self):
        """The pids of this browser's running hosts (the browser runs in a session of its own)."""
        return {pid for pid, argv in session_members(self.browser_pid)
                if any(os.path.realpath(arg) == self.host for arg in argv[:2] if arg)}

    def close(self):
        """Ends the browser; its helpers and hosts share its session, and none may outlive it."""
        self.quit()
        sid = getattr(self, 'browser_pid', None)
        if sid and not poll(lambda: not session_members(sid), seconds=10):
            with contextlib.suppress(ProcessLookupError):
                os.killpg(sid, 9)


def session_members(sid):
    """The live processes of a session (zombies, which only wait for their parent, aside): (pid, argv) each."""
    members = []
    for name in filter(str.isdigit, os.listdir('/proc')):
        try:
            with open('/proc/%s/stat' % name) as f:
                state = f.read().rsplit(')', 1)[1].split()[0]
            if state != 'Z' and os.getsid(int(name)) == sid:
                with open('/proc/%s/cmdline' % name, 'rb') as f:
                    members.append((int(name), f.read().decode(errors='replace').split('\0')))
        except OSError:
            pass
    return members
