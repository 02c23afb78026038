"""What the two engines of today's browsers share (engine_chromium.py, engine_firefox.py): the plug-in runs in
passway-host, reached through the Passway extension built for that browser (build/extension/BROWSER/). One
browser and one tab serve the shared visits: leaving a page navigates the tab to about:blank, so the tab's host
(and the plug-in in it) lives on across pages, as it does for a user.

A portal origin is approved in one of two ways, both exercised by a run:
- the administrator's managed policy `approvedOrigins`, written before the browser starts, approves the demo
  portal's origin (http://127.0.0.1:PORT): its visits proceed with no one asked. Where a browser's policy
  cannot be written (Chromium's is system-wide: only root may), the engine approves that origin in the popup
  instead, and says so;
- the user's click on "Allow this portal" in the extension's popup (opened as a tab, popup.html?origin=O),
  for the other origin (http://localhost:PORT) in the bridge's own visit.

A browser driver provides: launch(run) (host manifest, policy, the browser), open_tab(url), close_tab(tab),
go(tab, url), evaluate(tab, expression) (the value, awaited when a promise, or None when it throws),
screenshot(tab, path), popup_url(origin), browser_pid, manifest_file (the host manifest it reads), log_words
(what marks its log's lines of interest), quit()."""
import contextlib
import json
import os
import shlex
import time
import urllib.parse

HOST_NAME = 'com.orvane.passway'
WAIT = 60  # seconds: the longest wait for anything a visit expects


def poll(condition, seconds=None, step=0.1):
    """condition's first true value within `seconds`, else its last value."""
    deadline = time.monotonic() + (WAIT if seconds is None else seconds)
    while True:
        value = condition()
        if value or time.monotonic() > deadline:
            return value
        time.sleep(step)


class BridgeEngine:
    bridge = True  # the plug-in runs in passway-host: the bridge's own checks apply
    program = None  # the browser's executable (a driver sets it)

    installed_program = None  # the browser's own launcher, for a run of the installed package
    installed_extension = None  # where the package puts the extension for this browser

    def __init__(self, build, source, host, window=False, installed=False):
        self.window = window    # a browser window on $DISPLAY instead of a headless browser
        self.source = source
        # installed: the Debian package's host and extension, the browser started by its own launcher with
        # nothing of ours on its command line (the package must be all it needs)
        self.installed = installed
        if installed:
            self.program, host = self.installed_program, '/usr/lib/passway/passway-host'
        self.host = os.path.realpath(host) if host else ''
        self.extension = self.installed_extension if installed else os.path.join(build, 'extension', self.name)
        self.screenshot_name = 'portal-after-install-%s.png' % self.name
        self.tab = None
        self.approved = set()   # origins approved so far, by the policy or in the popup
        self.policy = None      # where the administrator's policy approving the portal's origin lives
        self.policy_rules = {}  # the policy's other settings (allowUserApprovals, allowPlainHttp, more origins)
        self.policy_note = ''   # why there is none

    def missing(self):
        if not os.access(self.program, os.X_OK):
            return '%s is missing (%s)' % (self.name, self.program)
        if not os.access(self.host, os.X_OK):
            return 'passway-host is not built (%s)' % self.host
        if not os.path.exists(os.path.join(self.extension, 'manifest.json')):
            return 'the extension is not built (%s)' % self.extension
        return None

    def host_manifest(self, run):
        """The browser's host manifest (extension/host-manifest/BROWSER/), pointing at the host under test through
        a script that keeps the host's standard error in `host_log` (Firefox keeps none of it)."""
        wrapper = os.path.join(run.work, 'passway-host')
        self.host_log = os.path.join(run.work, 'host.log')
        with open(wrapper, 'w') as f:
            f.write('#!/bin/sh\nexec %s "$@" 2>>%s\n' % (shlex.quote(self.host), shlex.quote(self.host_log)))
        os.chmod(wrapper, 0o755)
        with open(os.path.join(self.source, 'extension', 'host-manifest', self.name, HOST_NAME + '.json.in')) as f:
            return json.loads(f.read().replace('@PASSWAY_HOST_PATH@', wrapper)
                              .replace('@PASSWAY_EXTENSION_ID@', getattr(self, 'id', '')))

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
        print('extension: the popup says %r' % said)
        if 'Orvane Passway plugin, Ver.' not in said:
            raise RuntimeError('the extension did not learn that the host and the plug-in are there: %r' % said)
        if self.policy:
            self.approved.add(self.portal_origin)
            print('approval: the policy approves %s (%s)' % (self.portal_origin, self.policy))
        elif self.portal_origin:
            print('approval: %s; the first visit approves %s in the popup instead'
                  % (self.policy_note, self.portal_origin))

    # ---- pages -----------------------------------------------------------------------------------
    def holds(self, tab, expression):
        return bool(self.evaluate(tab, '(function () { try { return !!(%s); } catch (e) { return false; } })()'
                                  % expression))

    def loaded(self, tab):
        """Waits until the tab's page has loaded (its elements are in)."""
        return poll(lambda: self.evaluate(tab, 'document.readyState') == 'complete')

    def page_state(self, tab):
        return (self.evaluate(tab, 'typeof transcript == "undefined" ? [] : transcript') or [],
                self.evaluate(tab, "document.getElementById('status') ? document.getElementById('status').textContent : ''"))

    # ---- approval, as a user gives it ------------------------------------------------------------
    def allow_button(self, origin):
        return 'document.querySelector(%s)' % json.dumps('button[data-origin="%s"]' % origin)

    @contextlib.contextmanager
    def popup(self, origin, seconds=WAIT):
        """The extension's popup for the origin, in a tab of its own while the block runs, and whether it
        offers "Allow this portal" for the origin (within `seconds`)."""
        popup = self.open_tab(self.popup_url(origin))
        try:
            yield popup, poll(lambda: self.holds(popup, self.allow_button(origin)), seconds)
        finally:
            self.close_tab(popup)

    def waits_for_approval(self, origin, seconds=WAIT):
        """Whether the popup offers "Allow this portal" for the origin, and the toolbar badge and title of the
        tab that shows the origin's page."""
        with self.popup(origin, seconds) as (popup, asked):
            signal = self.evaluate(popup, """chrome.tabs.query({}).then(async (tabs) => {
                const tab = tabs.find((t) => (t.url || '').startsWith(%s + '/'));
                return tab ? [await chrome.action.getBadgeText({tabId: tab.id}),
                              await chrome.action.getTitle({tabId: tab.id})] : [null, null];
            })""" % json.dumps(origin)) or [None, None]
        return asked, signal[0], signal[1]

    def tab_signal(self, page):
        """The toolbar badge and title of the tab whose URL begins with `page`, what the extension keeps as
        waiting in that tab (None: nothing), and the page's own title (read without the page's script)."""
        popup = self.open_tab(self.popup_url(''))
        try:
            return poll(lambda: self.evaluate(popup, """chrome.tabs.query({}).then(async (tabs) => {
                const tab = tabs.find((t) => (t.url || '').startsWith(%s));
                if (!tab) return [null, null, null, null];
                const key = 'waiting:' + tab.id;
                return [await chrome.action.getBadgeText({tabId: tab.id}), await chrome.action.getTitle({tabId: tab.id}),
                        (await chrome.storage.session.get(key))[key] || null, tab.title];
            })""" % json.dumps(page))) or [None, None, None, None]
        finally:
            self.close_tab(popup)

    def popup_row(self, origin, seconds=WAIT):
        """What the popup says of the origin waiting in some tab (once it says anything), and whether it offers
        "Allow" for it."""
        with self.popup(origin, seconds=0) as (popup, _):
            said = poll(lambda: self.evaluate(popup, "document.getElementById('portals').innerText"), seconds) or ''
            return said, self.holds(popup, self.allow_button(origin))

    def remove_approval(self, origin):
        """Clicks "Remove" for the origin in the popup's list of approved portals."""
        button = 'document.querySelector(%s)' % json.dumps('button[data-remove="%s"]' % origin)
        popup = self.open_tab(self.popup_url(''))
        try:
            if not poll(lambda: self.holds(popup, button)):
                raise RuntimeError('the popup lists no "Remove" for %s' % origin)
            self.evaluate(popup, button + '.click()')
            if not poll(lambda: not self.holds(popup, button)):
                raise RuntimeError('the popup still lists %s after "Remove"' % origin)
        finally:
            self.close_tab(popup)
        self.approved.discard(origin)

    def button_says(self, seconds=WAIT):
        """The toolbar button's badge and title (for every tab) and what the popup says of the host, once it
        says anything."""
        popup = self.open_tab(self.popup_url(''))
        try:
            host = "document.getElementById('host').textContent"
            said = poll(lambda: self.evaluate(popup, host), seconds) or ''
            badge, title = self.evaluate(popup, 'Promise.all([chrome.action.getBadgeText({}), '
                                                'chrome.action.getTitle({})])') or [None, None]
        finally:
            self.close_tab(popup)
        return badge, title, said

    def approve(self, origin):
        """Clicks "Allow this portal" for the origin in the extension's popup."""
        with self.popup(origin) as (popup, asked):
            if not asked:
                raise RuntimeError('the popup never offered "Allow this portal" for %s' % origin)
            self.evaluate(popup, self.allow_button(origin) + '.click()')
            if not poll(lambda: self.holds(popup, "document.body.textContent.indexOf('Allowed') >= 0")):
                raise RuntimeError('the popup did not confirm the approval of %s' % origin)
        self.approved.add(origin)

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
            if not poll(lambda: self.holds(tab, until) and (ready is None or ready())) and \
                    origin == self.portal_origin and self.policy:
                asked, _, _ = self.waits_for_approval(origin, seconds=1)
                if asked:
                    raise RuntimeError('the policy (%s) did not approve %s: the extension asks the user'
                                       % (self.policy, origin))
            page, status = self.page_state(tab)
            if screenshot:
                self.screenshot(tab, screenshot)
        finally:
            self.close_tab(tab) if fresh else self.go(tab, 'about:blank')
        return page, status

    # ---- what the bridge's own checks look at ----------------------------------------------------
    def log_tail(self):
        with open(self.log_path, errors='replace') as f:
            lines = [line for line in f if any(word in line.lower() for word in self.log_words)]
        return 'browser log (passway lines, tail):\n' + ''.join(lines[-40:])

    def host_processes(self):
        """The pids of this browser's running hosts (the browser runs in a session of its own)."""
        return [pid for pid, argv in session_members(self.browser_pid)
                if any(os.path.realpath(arg) == self.host for arg in argv[:2] if arg)]

    def close(self):
        """Ends the browser; its helpers and hosts share its session, and none may outlive it."""
        self.quit()
        sid = getattr(self, 'browser_pid', None)
        if sid and not poll(lambda: not session_members(sid), seconds=10):
            try:
                os.killpg(sid, 9)
            except ProcessLookupError:
                pass


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
