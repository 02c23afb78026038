#!/usr/bin/env python3
"""The end-to-end run in a real browser engine: the portal pages, the test plug-in, the fake service. The same
visits for every engine: every way of embedding the plug-in (portal/embedding-cases.json, with what QtWebKit
made of each); install a signed package; connect and relay messages; leave the page (the service stops, the
plug-in asks it once more itself); probe a running service; the classic portal (params, fallback, detection,
a strict Content-Security-Policy) through install, connect and probe, every page call and the parameter text
exactly as QtWebKit's; a package with a bad signature (nothing is installed).
With today's browsers, Chromium and Firefox (the plug-in runs in passway-host, reached through the Passway
extension), the portal's origin is approved by the administrator's policy, and three more visits check the
bridge: a portal origin nobody approved waits and starts no host until the user allows it in the
extension's popup (seeing nothing of the plug-in in navigator meanwhile), a quote in a service reply reaches
the page as text, and the toolbar button says when the plug-in or the host is missing.

usage: run_e2e.py BUILD_DIR SOURCE_DIR [--engine qtwebkit|chromium|firefox] [--host=PATH] [--window] [--only=V,...]
--window shows Chromium or Firefox in a window on $DISPLAY instead of running it headless; --only makes
only the visits named (embeddings, install, connect, ...), in their order.
--host names passway-host (default BUILD_DIR/host/passway-host); an empty one means that the build has none,
and the Chromium and Firefox runs skip. The environment variable PASSWAY_E2E_HOST, when set, names another
host to test. Prints what the page heard on each visit, where the screenshot after the install is, and how
long each visit took. Exit 0 when every check holds, 1 on the first failure, 77 when the engine (or the host)
is missing outside CI."""
import argparse
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import urllib.parse

sys.dont_write_bytecode = True  # importing the shared modules leaves no __pycache__ in the source tree
from demo_setup import DemoPortal, read
from devtools_pipe import DevToolsError
from embedding_cases import visit_cases
from installed_package import CLIENT_ROOT, InstalledPackage, PackageError
from engine_bridge import poll
from engine_chromium import ChromiumEngine
from engine_firefox import FirefoxEngine
from engine_qtwebkit import QtWebKitEngine
from marionette import MarionetteError

ENGINES = {engine.name: engine for engine in (QtWebKitEngine, ChromiumEngine, FirefoxEngine)}


class Failure(Exception):
    pass


def check(condition, message):
    if not condition:
        raise Failure(message)


def heard(line):
    """A page condition: the page's transcript holds this line."""
    return 'transcript.indexOf(%s) >= 0' % json.dumps(line)


class Run(DemoPortal):
    """The shared set-up plus a home folder for the browser (the plug-in logs there), whose environment
    hands the installer the test root and the service program."""

    def __init__(self, build, source, engine, root=None):
        super().__init__(build, source, root=root)
        self.engine = engine
        self.home = os.path.join(self.work, 'home')
        os.makedirs(self.home)
        self.env = dict(os.environ, HOME=self.home, XDG_RUNTIME_DIR=self.work, **self.installer_env)
        self.size = os.path.getsize(self.package)

    def run_file(self, name):
        return read(os.path.join(self.root, 'var', 'run', name))

    def visit(self, query, until, screenshot=None, lines=None, page='index.html', ready=None, fresh=False):
        page, self.status = self.engine.visit(self.url(query, page), until, screenshot, ready, fresh)
        if lines != 0:
            print('\n'.join('   ' + line for line in page[:lines]))
            print('   status line: %s' % self.status)
        return page

    def created(self):
        """How many elements the plug-in has created in this run (each one writes this line to its log)."""
        return read(os.path.join(self.home, '.Orvane', 'tunvo_plugin.log')).count('vpnA:=')

    def site(self, name, query='', page='index.html'):
        """The portal's page under another name: another site (names under .test reach the portal's server)."""
        return self.url(query, page).replace('//127.0.0.1:', '//%s:' % name)

    def install_query(self, signature):
        return 'mode=install&size=%d&signature=%s' % (self.size, urllib.parse.quote(signature))


# ---- the visits every engine makes -----------------------------------------------------------------
def embeddings(run):
    print('== visit 0: every way a page embeds the plug-in, as QtWebKit serves it')
    visit_cases(run, check)


def install(run):
    print('== visit 1: install the client')
    screenshot = os.path.join(run.build, 'e2e', run.engine.screenshot_name)
    os.makedirs(os.path.dirname(screenshot), exist_ok=True)
    if os.path.exists(screenshot):
        os.remove(screenshot)
    page = run.visit(run.install_query(run.signature),
                     heard('installation ok') + ' || ' + heard('installation failed'), screenshot)
    for expected in ['download start: %d' % run.size, 'progress: 0', 'progress: %d' % run.size, 'download done',
                     'installing', 'installation ok']:
        check(expected in page, 'install: the page did not hear "%s"' % expected)
    check(run.run_file('installer.log') == 'SUDO\ndemo-password\n',
          'install: the installer did not get SUDO and the password on its input')
    check(os.path.exists(os.path.join(run.root, 'tunvo_x86_64')), 'install: no service executable installed')
    check(os.path.exists(screenshot) and os.path.getsize(screenshot) > 0, 'install: no screenshot')
    print('   screenshot: ' + screenshot)


def connect(run):
    print('== visit 2: connect and relay')
    page = run.visit('mode=connect&answers=hello,say%3Dpong,bye', heard('c_addcomm: ack:bye&z=2'), lines=8)
    requests = run.run_file('requests.log')
    for expected in ['c_addcomm: connected', 'c_addcomm: ack:hello&z=0', 'c_addcomm: pong', 'c_addcomm: ack:bye&z=2']:
        check(expected in page, 'connect: the page did not hear "%s"' % expected)
    for expected in ['?CONNECT ', '?hello&z=0 ', '?say=pong&z=1 ', '?bye&z=2 ']:
        check(expected in requests, 'connect: the service did not receive "%s"' % expected)
    check('user=demo&browser_pid=' in run.run_file('params.txt'), 'connect: the service did not get the page parameters')
    check(run.status == 'Connected', 'connect: the status line reads %r, not "Connected"' % run.status)


def leave(run):
    print('== visit 3: leaving the page stopped the service')
    check(poll(lambda: run.service_pid() == 0, 30), 'leave: the service is still running after the page was left')
    # The request open when the page went ends with a network error, and the plug-in asks the service once
    # more itself (HTTP/1.1 is its own socket's), as in QtWebKit.
    requests = run.run_file('requests.log').splitlines()
    targets = [line.split(' ')[1] for line in requests]
    print('   the service was asked: ' + ' '.join(targets))
    check(targets == ['/vpn.php?' + q for q in ['CONNECT', 'hello&z=0', 'say=pong&z=1', 'bye&z=2', 'INFO&z=3', 'INFO']],
          'leave: the service was asked %r' % targets)
    check(requests[-1].endswith(' HTTP/1.1'), 'leave: the last request was not the plug-in\'s own: %r' % requests[-1])


def probe(run):
    print('== visit 4: probe a running service')
    starter = subprocess.run([os.path.join(run.root, 'tunvo_x86_64')], input='user=probe&', text=True,
                             env=run.env, timeout=30)
    check(starter.returncode == 0 and run.service_pid(), 'probe: the service did not start')
    before = run.run_file('requests.log').count('\n')
    page = run.visit('mode=probe', 'transcript.length > 0')
    after = run.run_file('requests.log').splitlines()[before:]
    check(after and after[0].startswith('GET /vpn.php?INFO '), 'probe: the service was not asked ?INFO')
    check(len(after) == 1, 'probe: the probe made %d requests instead of one' % len(after))
    check(page == ['c_addcomm: ack:INFO'], 'probe: the page heard %r' % page)
    run.stop_service()


def bad_signature(run):
    print('== visit 5: a package with a bad signature')
    run.reset_root()
    page = run.visit(run.install_query(run.bad_signature),
                     heard('installation failed') + ' || ' + heard('installation ok'))
    check('installation failed' in page, 'bad signature: the page did not hear VPNInstallationFailed')
    check(not os.path.exists(os.path.join(run.root, 'tunvo_x86_64')), 'bad signature: something was installed')
    check(not run.run_file('installer.log'), 'bad signature: the installer ran')


# ---- the classic portal (portal/classic.html): <param> children, an <embed> fallback, added after load,
# the plug-in looked up in navigator.mimeTypes first, under a strict Content-Security-Policy. Every page
# call, with its arguments and their types, and the service's parameter text must be the same in every
# engine: each visit starts the plug-in anew (a tab of its own), as QtWebKit's visits do.
FOUND = 'found: Orvane Passway plugin (xvpn)'


def classic_visit_page(run, query='', until=None):
    """The classic page's transcript; with no mode and no `until` it only looks for the plug-in."""
    until = until and '%s || transcript.indexOf(%s) >= 0' % (until, json.dumps('not found'))
    return run.visit(query, until or 'transcript.length > 0', page='classic.html', fresh=True,
                     lines=0 if until is None else None)


def classic_visit(run, query, until):
    page = classic_visit_page(run, query, until)
    check(page[:1] == [FOUND], 'classic: the page did not find the plug-in in navigator.mimeTypes: %r' % page[:1])
    return page


def classic_install(run):
    print('== classic portal: install')
    run.reset_root()
    page = classic_visit(run, run.install_query(run.signature), heard('VPNInstallationOK()'))
    size = 'number:%d' % run.size
    check(page == [FOUND, 'onTunvoDownloadStart(%s)' % size, 'onTunvoDownloadProgress(number:0)',
                   'onTunvoDownloadProgress(%s)' % size, 'onTunvoDownloadDone()', 'onTunvoInstalling()',
                   'VPNInstallationOK()'], 'classic install: the page heard %r' % page)


def classic_connect(run):
    print('== classic portal: connect and relay')
    page = classic_visit(run, 'mode=connect&answers=hello,bye', heard('c_addcomm(string:ack:bye&z=1)'))
    check(page == [FOUND, 'c_addcomm(string:connected)', 'c_addcomm(string:ack:hello&z=0)',
                   'c_addcomm(string:ack:bye&z=1)'], 'classic connect: the page heard %r' % page)
    params = re.sub(r'browser_pid=\d+&', 'browser_pid=N&', run.run_file('params.txt'))
    check(params == 'held=a b&c&tunvoversion=&type=application/x-orvane-sslvpn&width=2&height=2&browser_pid=N&',
          'classic connect: the service got %r' % params)
    check(poll(lambda: run.service_pid() == 0, 30), 'classic connect: the service still runs after the page went')


def classic_probe(run):
    print('== classic portal: probe')
    starter = subprocess.run([os.path.join(run.root, 'tunvo_x86_64')], input='user=probe&', text=True,
                             env=run.env, timeout=30)
    check(starter.returncode == 0 and run.service_pid(), 'classic probe: the service did not start')
    page = classic_visit(run, 'mode=probe', 'transcript.length > 1')
    check(page == [FOUND, 'c_addcomm(string:ack:INFO)'], 'classic probe: the page heard %r' % page)
    run.stop_service()


# ---- what only the bridge (the extension and passway-host) adds ---------------------------------------
def user_approval(run):
    print('== bridge: a portal origin nobody approved waits and starts no host, until the user allows it')
    # The same portal under another name is another origin, which nobody approved. With no client
    # installed (visit 5 left none), a connecting element tells the page so: the plug-in's first call.
    origin = 'http://localhost:%d' % run.port
    url = run.site('localhost', 'mode=connect&answers=hello')
    engine, created = run.engine, run.created
    hosts, elements = engine.host_processes(), created()
    tab = engine.open_tab(url)
    try:
        engine.loaded(tab)
        asked, badge, title = engine.waits_for_approval(origin)
        waiting, _ = engine.page_state(tab)
        hosts_while_waiting = engine.host_processes()
        shown = engine.evaluate(tab, "!!navigator.mimeTypes['application/x-orvane-sslvpn']")
        print('   toolbar: badge %r, title %r; hosts before: %s, while the page waits: %s'
              % (badge, title, hosts, hosts_while_waiting))
        check(asked, 'unapproved: the extension did not ask the user about %s' % origin)
        check(badge == '?' and origin in (title or ''), 'unapproved: the toolbar shows %r, %r' % (badge, title))
        check(not set(hosts_while_waiting) - set(hosts), 'unapproved: a host started for %s' % origin)
        check(created() == elements, 'unapproved: the plug-in created an element for %s' % origin)
        check(waiting == [], 'unapproved: the page heard %r' % waiting)
        check(shown is False, 'unapproved: the page found the plug-in in navigator.mimeTypes')

        engine.approve(origin)
        poll(lambda: engine.holds(tab, 'transcript.length > 0'))
        page, _ = engine.page_state(tab)
        hosts_after = engine.host_processes()
    finally:
        engine.close_tab(tab)
    print('   after "Allow this portal": the page heard %r; hosts: %s' % (page, hosts_after))
    check(page == ['not installed'], 'allowed: the page heard %r, not the plug-in\'s VPNNotInstalled' % page)
    check(len(set(hosts_after) - set(hosts)) == 1, 'allowed: no host of its own started for the tab')
    check(created() == elements + 1, 'allowed: the plug-in did not create the element')


def quote_in_reply(run):
    print('== bridge: a quote in a service reply reaches the page as text')
    # The page sends this and the fake service replies with it (percent-encoded, as the request carried it).
    # A browser decodes the plug-in's javascript:c_addcomm('...') URL before it runs it: there the quotes
    # would end the string and the rest would run as script.
    reply = "it's<b>');note('injected');('"
    run.reset_root()
    installer = subprocess.run(['/bin/sh', run.package, 'SUDO'], input='demo-password', text=True, env=run.env)
    check(installer.returncode == 0, 'quote: the client could not be installed for the visit')
    page = run.visit('mode=connect&answers=' + urllib.parse.quote('say=' + reply, safe=''),
                     "transcript.filter(function (l) { return l.indexOf('c_addcomm: ') == 0; }).length >= 2")
    check('c_addcomm: ' + reply in page, 'quote: c_addcomm did not get the reply as its text')
    check('injected' not in page, 'quote: the reply ran as script in the page')
    # The page's message reaches the service percent-encoded, as a browser would send it.
    sent = [z for text, z in re.findall(r'\?say=(\S*)&z=(\d+) ', run.run_file('requests.log'))
            if urllib.parse.unquote(text) == reply]
    check(sent, 'quote: the service did not receive the page message')
    # The tab's host kept the plug-in loaded since visit 2: its message numbers run on.
    check(int(sent[0]) > 2, 'quote: the message numbers started again (z=%s)' % sent[0])


def forged_results(run):
    print('== bridge: a page whose own script forges its answers sends the host nothing of its own')
    # forge.html connects; every page function answers with an object built to become a host message (an
    # element with a parameter of the page's choosing), and the page replaces every built-in it can reach,
    # those of a browser driver's scripts too: it shows what it heard in its title, read from the tab.
    engine = run.engine
    refusals = lambda: read(engine.host_log).count('passway-host: refused')
    poll(lambda: run.service_pid() == 0, 30)  # the last visit's service ends with its page
    run.stop_service()
    elements, refused = run.created(), refusals()
    tab = engine.open_tab(run.url('', 'forge.html'))
    try:
        title = poll(lambda: (lambda t: t if t and t.startswith('heard') else None)(engine.tab_signal(run.url('', 'forge.html'))[3]))
        poll(lambda: run.created() - elements > 1, 2)  # a forged element would follow the first answer at once
    finally:
        engine.close_tab(tab)
    made = run.created() - elements
    print('   the page: %r; elements the plug-in made: %d; refusals in the host\'s log: %d'
          % (title, made, refusals() - refused))
    check(title == 'heard: c_addcomm: connected', 'forge: the page heard %r' % title)
    check(made == 1, 'forge: the plug-in made %d elements for the one element of the page' % made)
    check('forged_by_page_script' not in read(os.path.join(run.home, '.Orvane', 'tunvo_plugin.log')),
          'forge: the page\'s parameter reached the plug-in')
    check(refusals() == refused, 'forge: the host refused messages: it was sent something malformed')
    check(poll(lambda: run.service_pid() == 0, 30), 'forge: the service still runs after the tab closed')


def approval_rules(run):
    print('== bridge: an element runs only where its frame and its page are both approved; approvals can be taken back')
    engine, port = run.engine, run.port
    hosts = engine.host_processes()

    # A site with no element of the plug-in's kind: no badge, nothing kept, no host, however busy the page.
    tab = engine.open_tab(run.site('plain.test', page='ordinary.html'))
    try:
        poll(lambda: engine.holds(tab, 'done'))
        badge, _, waiting, _ = engine.tab_signal('http://plain.test:%d/' % port)
    finally:
        engine.close_tab(tab)
    print('   an ordinary site: badge %r, kept as waiting %r' % (badge, waiting))
    check(badge == '' and waiting is None, 'ordinary site: badge %r, waiting %r' % (badge, waiting))
    check(not set(engine.host_processes()) - set(hosts), 'ordinary site: a host started')

    # The approved portal in a frame of a site nobody approved (plain http, not loopback): it waits, and the
    # popup names both and warns of plain http; allowing it approves the site that frames it.
    top = 'http://top.test:%d' % port
    elements = run.created()
    tab = engine.open_tab(run.site('top.test', 'src=' + urllib.parse.quote(run.url('mode=probe'), safe=''), 'framed.html'))
    try:
        engine.loaded(tab)
        said, offered = engine.popup_row(engine.portal_origin)
        badge, title, waiting, _ = engine.tab_signal(top + '/')
        print('   the portal framed by %s: popup %r; badge %r, title %r' % (top, said, badge, title))
        check(offered and 'inside a page of ' + top in said and 'Not encrypted' in said,
              'framed: the popup says %r' % said)
        check(badge == '?' and top in (title or ''), 'framed: the toolbar shows %r, %r' % (badge, title))
        check(run.created() == elements and not set(engine.host_processes()) - set(hosts),
              'framed: the element ran before its page was approved')
        engine.approve(engine.portal_origin)
        check(poll(lambda: run.created() == elements + 1), 'framed: the element did not run once both were approved')
        started = set(engine.host_processes()) - set(hosts)
        check(len(started) == 1, 'framed: hosts started: %s' % started)

        # Taken back in the popup's list: the tab's host ends at once and the element waits again.
        engine.remove_approval(top)
        ended = poll(lambda: not started & set(engine.host_processes()), 10)
        badge = poll(lambda: engine.tab_signal(top + '/')[0] == '?' and '?', 10)
        print('   %s removed: its host ended: %s; badge %r' % (top, bool(ended), badge))
        check(ended, 'removed: the tab\'s host still runs')
        check(badge == '?', 'removed: the element does not wait again')
    finally:
        engine.close_tab(tab)


def policy_rules(run):
    print('== bridge: the administrator forbids user approvals and plain http')
    engine, port = run.engine, run.port
    if engine.name == 'chromium' and os.geteuid() != 0:
        print('   skipped: Chromium reads policies only from /etc (root)')
        return
    insecure, mine = 'http://insecure.test:%d' % port, 'http://localhost:%d' % port  # the user approved localhost
    engine.restart(run, {'approvedOrigins': [insecure], 'allowUserApprovals': False, 'allowPlainHttp': False})
    hosts, elements = engine.host_processes(), run.created()
    for origin, name, words in [(mine, 'localhost', 'allows only the portals it lists'),
                                (insecure, 'insecure.test', 'does not allow portals over plain http')]:
        tab = engine.open_tab(run.site(name, 'mode=probe'))
        try:
            engine.loaded(tab)
            said, offered = engine.popup_row(origin)
            badge, title, _, _ = engine.tab_signal(origin + '/')
        finally:
            engine.close_tab(tab)
        print('   %s: popup %r, offers "Allow": %s; badge %r, title %r' % (origin, said, offered, badge, title))
        check(words in said and not offered, '%s: the popup says %r (offers "Allow": %s)' % (origin, said, offered))
        check(badge != '?' and 'administrator does not allow' in (title or ''), '%s: the toolbar shows %r, %r' % (origin, badge, title))
    check(run.created() == elements and not set(engine.host_processes()) - set(hosts),
          'policy: an element the administrator refuses ran')
    tab = engine.open_tab(run.url('mode=probe'))  # the administrator's own loopback portal still runs
    try:
        check(poll(lambda: run.created() == elements + 1), 'policy: the administrator\'s portal did not run')
    finally:
        engine.close_tab(tab)


def connected_tab(run, answers):
    """A tab of its own on the demo portal that connects and answers the service with `answers`, its URL,
    and the host that started for it (the tab's only one)."""
    engine = run.engine
    poll(lambda: run.service_pid() == 0, 30)  # the last visit's service ends with its page
    run.stop_service()
    hosts = set(engine.host_processes())
    url = run.url('mode=connect&answers=' + urllib.parse.quote(answers, safe=''))
    tab = engine.open_tab(url)
    check(poll(lambda: engine.holds(tab, heard('c_addcomm: connected'))), 'the page did not connect')
    started = poll(lambda: set(engine.host_processes()) - hosts)
    check(started and len(started) == 1, 'hosts started for the tab: %s' % started)
    return tab, url, started.pop()


def host_killed(run):
    print('== bridge: the host killed (SIGKILL) in a connected session: the page hears ssldrop, no service is left, a reload connects again')
    engine = run.engine
    tab, url, host = connected_tab(run, 'hello')
    try:
        check(poll(lambda: engine.holds(tab, heard('c_addcomm: ack:hello&z=0'))), 'killed host: the relay did not run')
        os.kill(host, signal.SIGKILL)
        dropped = poll(lambda: engine.holds(tab, heard('c_addcomm: ssldrop')), 10)
        gone = poll(lambda: run.service_pid() == 0, 10)
        page, status = engine.page_state(tab)
        badge, title, _, _ = engine.tab_signal(url)
        print('   after SIGKILL: the page heard %r, status %r; service left: %s; badge %r, title %r'
              % (page[-1:], status, not gone, badge, title))
        check(dropped, 'killed host: the page did not hear ssldrop')
        check(gone, 'killed host: the service still runs')
        check(badge == '!' and 'stopped unexpectedly' in (title or ''), 'killed host: the toolbar shows %r, %r' % (badge, title))
        engine.go(tab, url)  # the user reloads
        again = poll(lambda: engine.holds(tab, heard('c_addcomm: ack:hello&z=0')))
        page, status = engine.page_state(tab)
        print('   after a reload: the page heard %r, status %r' % (page[:1], status))
        check(again and status == 'Connected', 'killed host: a reload did not connect again (%r, %r)' % (page, status))
    finally:
        engine.close_tab(tab)
    check(poll(lambda: run.service_pid() == 0, 30), 'killed host: the service still runs after the tab closed')


def hung_service(run):
    print('== bridge: a service that hangs and a tab closed meanwhile: no service is left')
    engine = run.engine
    tab, url, host = connected_tab(run, 'hang')
    try:
        check(poll(lambda: '?hang&z=0 ' in run.run_file('requests.log')), 'hung service: the page\'s message did not reach it')
    finally:
        engine.close_tab(tab)
    began = time.monotonic()
    gone = poll(lambda: run.service_pid() == 0, 30)
    print('   the tab closed; the service was stopped after %.1f s; the host is %s'
          % (time.monotonic() - began, 'gone' if host not in engine.host_processes() else 'still running'))
    check(gone, 'hung service: the service still runs after the tab closed')


def held_reply(run):
    print('== bridge: a reply the service holds for 150 s reaches the page, and no other answer takes its place')
    engine = run.engine
    tab, url, host = connected_tab(run, 'hold=150')
    try:
        held = poll(lambda: engine.holds(tab, 'transcript.length > 2'), 200, step=1)
        page, _ = engine.page_state(tab)
    finally:
        engine.close_tab(tab)
    requests = run.run_file('requests.log')
    at = requests.find('?hold=150&z=0 ')
    after = requests[at:].splitlines()[1:2] if at >= 0 else []
    print('   the page heard %r; the next request: %r' % (page[2:3], after))
    check(held and page[2] == 'c_addcomm: held:150', 'held reply: the page heard %r' % page)
    check(after and '?INFO&z=1 ' in after[0], 'held reply: the service was asked %r after the held request' % after)


def host_problems(run):
    print('== bridge: the user is told when the plug-in or the host is missing; pages see the plug-in only while both are there')
    engine = run.engine
    plugin = os.path.join(run.plugins, 'libtunvo_plugin_testroot.so')

    def button(expected_badge, words):
        """Opens the demo's probe page in a tab of its own (its element starts a host of its own) and
        waits until the toolbar button shows the badge; then the button's title and the popup must say
        the words."""
        tab = engine.open_tab(run.url('mode=probe'))
        try:
            shown = poll(lambda: (lambda b: b if b[0] == expected_badge else None)(engine.button_says()), 30)
            badge, title, said = shown or engine.button_says()
        finally:
            engine.close_tab(tab)
        print('   button: badge %r, title %r; popup: %r' % (badge, title, said))
        check(badge == expected_badge and all(w in title + ' ' + said for w in words),
              'host problems: the button shows %r, %r and the popup %r' % (badge, title, said))

    os.rename(plugin, plugin + '.aside')
    try:
        button('!', ['cannot be loaded', 'could not load the VPN plug-in', plugin])
        page = classic_visit_page(run)
        check(page[:1] == ['not found'], 'host problems: without the plug-in the page still finds it: %r' % page)
    finally:
        os.rename(plugin + '.aside', plugin)
    os.rename(engine.manifest_file, engine.manifest_file + '.aside')
    try:
        button('!', ['not installed', 'Install the Passway package'])
    finally:
        os.rename(engine.manifest_file + '.aside', engine.manifest_file)
    button('', ['Orvane Passway plugin, Ver.'])
    page = classic_visit_page(run)
    check(page[:1] == [FOUND], 'host problems: once both are back the page does not find the plug-in: %r' % page)


VISITS = [embeddings, install, connect, leave, probe, classic_install, classic_connect, classic_probe, bad_signature]
BRIDGE_VISITS = [user_approval, quote_in_reply, forged_results, host_killed, hung_service, held_reply, host_problems,
                 approval_rules, policy_rules]
INSTALLED_VISITS = [install, connect, leave, probe, bad_signature]  # the demo portal's


def main():
    parser = argparse.ArgumentParser(description='The end-to-end run in a real browser engine.')
    parser.add_argument('build')
    parser.add_argument('source')
    parser.add_argument('--engine', choices=sorted(ENGINES), default='qtwebkit')
    parser.add_argument('--host', help='passway-host for the Chromium and Firefox runs (empty: the build has none)')
    parser.add_argument('--window', action='store_true', help='Chromium or Firefox in a window on $DISPLAY')
    parser.add_argument('--only', help='the visits to make, by name, comma-separated (default: all)')
    parser.add_argument('--forcelist', action='store_true',
                        help='Chromium: the extension force-installed by policy from its CRX (root only), the demo '
                             'portal\'s visits')
    parser.add_argument('--installed', action='store_true',
                        help='Chromium or Firefox: the Debian package installed (root only), the browser started by its '
                             'own launcher, the demo portal\'s visits, then the package purged')
    args = parser.parse_args()
    build, source = os.path.abspath(args.build), os.path.abspath(args.source)
    host = os.environ.get('PASSWAY_E2E_HOST') or args.host
    host = os.path.join(build, 'host', 'passway-host') if host is None else host
    # A run stopped by SIGTERM (a time-out, a kill) still ends its browser and removes what it wrote.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    if args.installed:
        return run_installed(build, source, args)
    if args.forcelist:
        if os.geteuid() != 0 or args.engine != 'chromium':
            print('e2e (%s, forcelist): Chromium as root only; skipped' % args.engine)
            return 77
        engine = ENGINES[args.engine](build, source, host, window=args.window, forcelist=True)
        return run_visits(build, source, engine, INSTALLED_VISITS, args.only)
    engine = ENGINES[args.engine](build, source, host, window=args.window)
    if engine.bridge and not host:
        print('e2e (%s): this build has no passway-host' % engine.name)
        return 77
    return run_visits(build, source, engine, VISITS + (BRIDGE_VISITS if engine.bridge else []), args.only)


def run_installed(build, source, args):
    """The installed package's run: root only (77 otherwise)."""
    if os.geteuid() != 0 or args.engine == 'qtwebkit':
        print('e2e (%s, installed package): %s' % (args.engine, 'QtWebKit needs no package' if os.geteuid() == 0
                                                     else 'installing the package needs root; skipped'))
        return 77
    work = tempfile.mkdtemp(prefix='passway-e2e-package-')
    try:
        with InstalledPackage(build, work):
            engine = ENGINES[args.engine](build, source, None, window=args.window, installed=True)
            return run_visits(build, source, engine, INSTALLED_VISITS, args.only, root=CLIENT_ROOT)
    except PackageError as error:
        print('e2e (%s, installed package) FAILED: %s' % (args.engine, error))
        return 1
    finally:
        shutil.rmtree(work, ignore_errors=True)


def run_visits(build, source, engine, visits, only, root=None):
    missing = engine.missing()
    if missing:
        print('e2e (%s): %s' % (engine.name, missing))
        return 1 if os.environ.get('CI') else 77
    started = time.monotonic()
    run = Run(build, source, engine, root)
    try:
        engine.start(run)
        if only:
            visits = [visit for visit in visits if visit.__name__ in only.split(',')]
        for visit in visits:
            began = time.monotonic()
            visit(run)
            print('   (%.2f s)' % (time.monotonic() - began))  # timed, never checked
        print('e2e (%s): %d visits passed, 0 failed in %.1f s' % (engine.name, len(visits), time.monotonic() - started))
        return 0
    except (Failure, DevToolsError, MarionetteError, RuntimeError) as failure:  # a check, the browser, a step
        print('e2e (%s) FAILED: %s' % (engine.name, failure))
        print('plug-in log (tail):\n' + read(os.path.join(run.home, '.Orvane', 'tunvo_plugin.log'))[-3000:])
        print(engine.log_tail())
        if getattr(engine, 'host_log', None):
            print('host log (tail):\n' + read(engine.host_log)[-3000:])
        return 1
    finally:
        engine.close()
        run.close()


if __name__ == '__main__':
    sys.exit(main())
