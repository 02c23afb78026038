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
                  [--installed | --forcelist]
--window shows Chromium or Firefox in a window on $DISPLAY instead of running it headless; --only makes
only the visits named (embeddings, install, connect, ...), in their order.
--host names passway-host (default BUILD_DIR/host/passway-host); an empty one means that the build has none,
and the Chromium and Firefox runs skip.
--installed (Chromium or Firefox, root only): the build's Debian package installed, the browser started by its
own launcher with nothing of ours on its command line, the demo portal's visits, then the package purged.
--forcelist (Chromium, root only): the extension force-installed by the administrator's policy from its CRX,
the demo portal's visits.
Prints what the page heard on each visit, where the screenshot after the install is, and how long each
visit took. Exit 0 when every check holds, 1 on the first failure, 77 when the engine (or the host) is
missing outside CI (or a run needs root)."""
import argparse
import contextlib
import glob
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
from demo_setup import DemoPortal, poll, read
from engine_chromium import ChromiumEngine
from engine_firefox import FirefoxEngine
from engine_qtwebkit import QtWebKitEngine

ENGINES = {engine.name: engine for engine in (QtWebKitEngine, ChromiumEngine, FirefoxEngine)}
PACKAGE = 'passway-plugin'
CLIENT_ROOT = '/usr/local/lib/Orvane/SSLVPN/'  # the production plug-in's install root (the visits fill it)
CLIENT_TOP = os.path.dirname(CLIENT_ROOT.rstrip('/'))  # /usr/local/lib/Orvane


class Failure(Exception):
    pass


def check(condition, message):
    if not condition:
        raise Failure(message)


def check_all(found, expected, message):
    """Checks that `found` holds every expected item; the message is formatted with those it does not."""
    missing = [item for item in expected if item not in found]
    check(not missing, message % missing)


def heard(*lines):
    """A page condition: the page's transcript holds one of these lines."""
    return ' || '.join('transcript.indexOf(%s) >= 0' % json.dumps(line) for line in lines)


class Run(DemoPortal):
    """The shared set-up plus a home folder for the browser (the plug-in logs there), whose environment
    hands the installer the test root and the service program."""

    def __init__(self, build, source, engine, root=None):
        super().__init__(build, source, root=root)
        self.engine = engine
        self.home = os.path.join(self.work, 'home')
        os.makedirs(self.home)
        os.makedirs(os.path.join(build, 'e2e'), exist_ok=True)  # the screenshot's folder
        self.env = dict(os.environ, HOME=self.home, XDG_RUNTIME_DIR=self.work, **self.installer_env)
        self.size = os.path.getsize(self.package)

    def run_file(self, name):
        return read(os.path.join(self.root, 'var', 'run', name))

    def plugin_log(self):
        return read(os.path.join(self.home, '.Orvane', 'tunvo_plugin.log'))

    def visit(self, query, until, screenshot=None, show=True, page='index.html', ready=None, fresh=False):
        lines, self.status = self.engine.visit(self.url(query, page), until, screenshot, ready, fresh)
        if show:
            print('\n'.join('   ' + line for line in lines))
            print('   status line: %s' % self.status)
        return lines

    def created(self):
        """How many elements the plug-in has created in this run (each one writes this line to its log)."""
        return self.plugin_log().count('vpnA:=')

    def instances(self):
        """The plug-in's instances in its log, in order: 'new TEXT' (the browser's pid left out) and 'destroy'.
        (An instance ended while the log is closed leaves no line: see embeddings.)"""
        found = re.findall(r"\[NS_NewPluginInstance\] vpnA:='(.*)'$|(\[NS_DestroyPluginInstance\] doNotTerminate)",
                           self.plugin_log(), re.M)
        return ['destroy' if ended else 'new ' + re.sub(r'browser_pid=\d+&', '', made) for made, ended in found]

    def start_service(self):
        """Starts the installed service by hand; whether it runs."""
        starter = subprocess.run([os.path.join(self.root, 'tunvo_x86_64')], input='user=probe&', text=True,
                                 env=self.env, timeout=30)
        return starter.returncode == 0 and self.service_pid()

    def service_ended(self, seconds=30):
        return poll(lambda: self.service_pid() == 0, seconds)

    def install_query(self, signature):
        return 'mode=install&size=%d&signature=%s' % (self.size, urllib.parse.quote(signature))


# ---- the visits every engine makes -----------------------------------------------------------------
def embeddings(run):
    print('== visit 0: every way a page embeds the plug-in, as QtWebKit serves it')
    with open(os.path.join(run.source, 'e2e', 'portal', 'embedding-cases.json')) as f:
        table = json.load(f)
    for case in table['cases']:
        expected = [event.replace('$T', table['T']) for event in case['events']]
        made = sum(1 for event in expected if event.startswith('new '))
        before = len(run.instances())
        page = run.visit('case=' + case['name'], 'done', show=False, page='embeds.html',
                         ready=lambda: sum(1 for e in run.instances()[before:] if e.startswith('new ')) >= made)
        # Leaving the page ends what is left of its instances. The log shows the first of those ends only:
        # the plug-in closes its log as each instance ends and opens it again for the next one it makes.
        if made > expected.count('destroy'):
            expected.append('destroy')
        poll(lambda: len(run.instances()) - before >= len(expected), 15)
        seen = run.instances()[before:]
        print('   %-32s %s' % (case['name'], ' | '.join(seen) or '(no instance)'))
        check(seen == expected, 'embedding %s: the plug-in saw %r, not %r' % (case['name'], seen, expected))
        check(page == case['page'], 'embedding %s: the page heard %r, not %r' % (case['name'], page, case['page']))


def install(run):
    print('== visit 1: install the client')
    screenshot = os.path.join(run.build, 'e2e', 'portal-after-install%s.png'
                              % ('-' + run.engine.name if run.engine.bridge else ''))
    with contextlib.suppress(FileNotFoundError):
        os.remove(screenshot)
    page = run.visit(run.install_query(run.signature), heard('installation ok', 'installation failed'), screenshot)
    check_all(page, ['download start: %d' % run.size, 'progress: 0', 'progress: %d' % run.size, 'download done',
                     'installing', 'installation ok'], 'install: the page did not hear %s')
    check(run.run_file('installer.log') == 'SUDO\ndemo-password\n',
          'install: the installer did not get SUDO and the password on its input')
    check(os.path.exists(os.path.join(run.root, 'tunvo_x86_64')), 'install: no service executable installed')
    check(os.path.exists(screenshot) and os.path.getsize(screenshot) > 0, 'install: no screenshot')
    print('   screenshot: ' + screenshot)


def connect(run):
    print('== visit 2: connect and relay')
    page = run.visit('mode=connect&answers=hello,say%3Dpong,bye', heard('c_addcomm: ack:bye&z=2'))
    check_all(page, ['c_addcomm: connected', 'c_addcomm: ack:hello&z=0', 'c_addcomm: pong', 'c_addcomm: ack:bye&z=2'],
              'connect: the page did not hear %s')
    check_all(run.run_file('requests.log'), ['?CONNECT ', '?hello&z=0 ', '?say=pong&z=1 ', '?bye&z=2 '],
              'connect: the service did not receive %s')
    check('user=demo&browser_pid=' in run.run_file('params.txt'), 'connect: the service did not get the page parameters')
    check(run.status == 'Connected', 'connect: the status line reads %r, not "Connected"' % run.status)


def leave(run):
    print('== visit 3: leaving the page stopped the service')
    check(run.service_ended(), 'leave: the service is still running after the page was left')
    # The request open when the page went ends with a network error, and the plug-in asks the service once
    # more itself (HTTP/1.1 is its own socket's), as in QtWebKit.
    requests = run.run_file('requests.log').splitlines()
    targets = [line.split(' ')[1] for line in requests]
    check(targets == ['/vpn.php?' + q for q in ['CONNECT', 'hello&z=0', 'say=pong&z=1', 'bye&z=2', 'INFO&z=3', 'INFO']],
          'leave: the service was asked %r' % targets)
    check(requests[-1].endswith(' HTTP/1.1'), 'leave: the last request was not the plug-in\'s own: %r' % requests[-1])


def probe(run):
    print('== visit 4: probe a running service')
    check(run.start_service(), 'probe: the service did not start')
    before = run.run_file('requests.log').count('\n')
    page = run.visit('mode=probe', 'transcript.length > 0')
    after = run.run_file('requests.log').splitlines()[before:]
    check(len(after) == 1 and after[0].startswith('GET /vpn.php?INFO '),
          'probe: the service was asked %r, not ?INFO once' % after)
    check(page == ['c_addcomm: ack:INFO'], 'probe: the page heard %r' % page)
    run.stop_service()


def bad_signature(run):
    print('== visit 5: a package with a bad signature')
    run.reset_root()
    page = run.visit(run.install_query(run.bad_signature), heard('installation failed', 'installation ok'))
    check('installation failed' in page, 'bad signature: the page did not hear VPNInstallationFailed')
    check(not os.path.exists(os.path.join(run.root, 'tunvo_x86_64')), 'bad signature: something was installed')
    check(not run.run_file('installer.log'), 'bad signature: the installer ran')


# ---- the classic portal (portal/classic.html): <param> children, an <embed> fallback, added after load,
# the plug-in looked up in navigator.mimeTypes first, under a strict Content-Security-Policy. Every page
# call, with its arguments and their types, and the service's parameter text must be the same in every
# engine: each visit starts the plug-in anew (a tab of its own), as QtWebKit's visits do.
FOUND = 'found: Orvane Passway plugin (xvpn)'


def classic_visit(run, query, *lines):
    """The classic page must find the plug-in in navigator.mimeTypes, then hear these lines, no more."""
    page = run.visit(query, heard(lines[-1], 'not found'), page='classic.html', fresh=True)
    check(page == [FOUND, *lines], 'classic: the page heard %r, not %r' % (page, [FOUND, *lines]))


def classic_install(run):
    print('== classic portal: install')
    run.reset_root()
    size = 'number:%d' % run.size
    classic_visit(run, run.install_query(run.signature), 'onTunvoDownloadStart(%s)' % size,
                  'onTunvoDownloadProgress(number:0)', 'onTunvoDownloadProgress(%s)' % size, 'onTunvoDownloadDone()',
                  'onTunvoInstalling()', 'VPNInstallationOK()')


def classic_connect(run):
    print('== classic portal: connect and relay')
    classic_visit(run, 'mode=connect&answers=hello,bye', 'c_addcomm(string:connected)',
                  'c_addcomm(string:ack:hello&z=0)', 'c_addcomm(string:ack:bye&z=1)')
    params = re.sub(r'browser_pid=\d+&', 'browser_pid=N&', run.run_file('params.txt'))
    check(params == 'held=a b&c&tunvoversion=&type=application/x-orvane-sslvpn&width=2&height=2&browser_pid=N&',
          'classic connect: the service got %r' % params)
    check(run.service_ended(), 'classic connect: the service still runs after the page went')


def classic_probe(run):
    print('== classic portal: probe')
    check(run.start_service(), 'classic probe: the service did not start')
    classic_visit(run, 'mode=probe', 'c_addcomm(string:ack:INFO)')
    run.stop_service()


# ---- what only the bridge (the extension and passway-host) adds ---------------------------------------
def user_approval(run):
    print('== bridge: a portal origin nobody approved waits and starts no host, until the user allows it')
    # The same portal under another name is another origin, which nobody approved. With no client
    # installed (visit 5 left none), a connecting element tells the page so: the plug-in's first call.
    engine, origin = run.engine, 'http://localhost:%d' % run.port
    hosts, elements = engine.host_processes(), run.created()
    with engine.opened(run.url('mode=connect&answers=hello', site='localhost')) as tab:
        engine.loaded(tab)
        check(engine.popup_row(origin)[1], 'unapproved: the extension did not ask the user about %s' % origin)
        badge, title = engine.tab_signal(origin + '/')[:2]
        check(badge == '?' and origin in (title or ''), 'unapproved: the toolbar shows %r, %r' % (badge, title))
        check(not engine.host_processes() - hosts, 'unapproved: a host started for %s' % origin)
        check(run.created() == elements, 'unapproved: the plug-in created an element for %s' % origin)
        page = engine.page_state(tab)[0]
        check(page == [], 'unapproved: the page heard %r' % page)
        check(engine.evaluate(tab, "!!navigator.mimeTypes['application/x-orvane-sslvpn']") is False,
              'unapproved: the page found the plug-in in navigator.mimeTypes')

        engine.approve(origin)
        poll(lambda: engine.holds(tab, 'transcript.length > 0'))
        page = engine.page_state(tab)[0]
        check(page == ['not installed'], 'allowed: the page heard %r, not the plug-in\'s VPNNotInstalled' % page)
        check(len(engine.host_processes() - hosts) == 1, 'allowed: no host of its own started for the tab')
        check(run.created() == elements + 1, 'allowed: the plug-in did not create the element')


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
    engine, url = run.engine, run.url('', 'forge.html')
    refusals = lambda: read(engine.host_log).count('passway-host: refused')
    run.service_ended()  # the last visit's service ends with its page
    run.stop_service()
    elements, refused = run.created(), refusals()
    with engine.opened(url):
        title = poll(lambda: (lambda t: t if t and t.startswith('heard') else None)(engine.tab_signal(url)[3]))
        poll(lambda: run.created() - elements > 1, 2)  # a forged element would follow the first answer at once
    made = run.created() - elements
    check(title == 'heard: c_addcomm: connected', 'forge: the page heard %r' % title)
    check(made == 1, 'forge: the plug-in made %d elements for the one element of the page' % made)
    check('forged_by_page_script' not in run.plugin_log(), 'forge: the page\'s parameter reached the plug-in')
    check(refusals() == refused, 'forge: the host refused messages: it was sent something malformed')
    check(run.service_ended(), 'forge: the service still runs after the tab closed')


def approval_rules(run):
    print('== bridge: an element runs only where its frame and its page are both approved; approvals can be taken back')
    engine, port = run.engine, run.port
    hosts = engine.host_processes()

    # A site with no element of the plug-in's kind: no badge, nothing kept, no host, however busy the page.
    with engine.opened(run.url(page='ordinary.html', site='plain.test')) as tab:
        poll(lambda: engine.holds(tab, 'done'))
        badge, _, waiting, _ = engine.tab_signal('http://plain.test:%d/' % port)
    check(badge == '' and waiting is None, 'ordinary site: badge %r, waiting %r' % (badge, waiting))
    check(not engine.host_processes() - hosts, 'ordinary site: a host started')

    # The approved portal in a frame of a site nobody approved (plain http, not loopback): it waits, and the
    # popup names both and warns of plain http; allowing it approves the site that frames it.
    top = 'http://top.test:%d' % port
    elements = run.created()
    framed = run.url('src=' + urllib.parse.quote(run.url('mode=probe'), safe=''), 'framed.html', 'top.test')
    with engine.opened(framed) as tab:
        engine.loaded(tab)
        said, offered = engine.popup_row(engine.portal_origin)
        check(offered and 'inside a page of ' + top in said and 'Not encrypted' in said,
              'framed: the popup says %r' % said)
        badge, title = engine.tab_signal(top + '/')[:2]
        check(badge == '?' and top in (title or ''), 'framed: the toolbar shows %r, %r' % (badge, title))
        check(run.created() == elements and not engine.host_processes() - hosts,
              'framed: the element ran before its page was approved')
        engine.approve(engine.portal_origin)
        check(poll(lambda: run.created() == elements + 1), 'framed: the element did not run once both were approved')
        started = engine.host_processes() - hosts
        check(len(started) == 1, 'framed: hosts started: %s' % started)

        # Taken back in the popup's list: the tab's host ends at once and the element waits again.
        engine.remove_approval(top)
        check(poll(lambda: not started & engine.host_processes(), 10), 'removed: the tab\'s host still runs')
        check(poll(lambda: engine.tab_signal(top + '/')[0] == '?', 10), 'removed: the element does not wait again')


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
        with engine.opened(run.url('mode=probe', site=name)) as tab:
            engine.loaded(tab)
            said, offered = engine.popup_row(origin)
            badge, title = engine.tab_signal(origin + '/')[:2]
        check(words in said and not offered, '%s: the popup says %r (offers "Allow": %s)' % (origin, said, offered))
        check(badge != '?' and 'administrator does not allow' in (title or ''),
              '%s: the toolbar shows %r, %r' % (origin, badge, title))
    check(run.created() == elements and not engine.host_processes() - hosts,
          'policy: an element the administrator refuses ran')
    with engine.opened(run.url('mode=probe')):  # the administrator's own loopback portal still runs
        check(poll(lambda: run.created() == elements + 1), 'policy: the administrator\'s portal did not run')


@contextlib.contextmanager
def connected(run, answers):
    """A tab of its own on the demo portal, while the block runs, that connects and answers the service with
    `answers`: the tab, its URL, and the host that started for it (the tab's only one)."""
    engine = run.engine
    run.service_ended()  # the last visit's service ends with its page
    run.stop_service()
    hosts = engine.host_processes()
    url = run.url('mode=connect&answers=' + urllib.parse.quote(answers, safe=''))
    with engine.opened(url) as tab:
        check(poll(lambda: engine.holds(tab, heard('c_addcomm: connected'))), 'the page did not connect')
        started = poll(lambda: engine.host_processes() - hosts)
        check(len(started) == 1, 'hosts started for the tab: %s' % started)
        yield tab, url, started.pop()


def host_killed(run):
    print('== bridge: the host killed (SIGKILL) in a connected session: the page hears ssldrop, no service is left, a reload connects again')
    engine = run.engine
    with connected(run, 'hello') as (tab, url, host):
        check(poll(lambda: engine.holds(tab, heard('c_addcomm: ack:hello&z=0'))), 'killed host: the relay did not run')
        os.kill(host, signal.SIGKILL)
        check(poll(lambda: engine.holds(tab, heard('c_addcomm: ssldrop')), 10), 'killed host: the page did not hear ssldrop')
        check(run.service_ended(10), 'killed host: the service still runs')
        badge, title = engine.tab_signal(url)[:2]
        check(badge == '!' and 'stopped unexpectedly' in (title or ''), 'killed host: the toolbar shows %r, %r' % (badge, title))
        engine.go(tab, url)  # the user reloads
        again = poll(lambda: engine.holds(tab, heard('c_addcomm: ack:hello&z=0')))
        page, status = engine.page_state(tab)
        check(again and status == 'Connected', 'killed host: a reload did not connect again (%r, %r)' % (page, status))
    check(run.service_ended(), 'killed host: the service still runs after the tab closed')


def hung_service(run):
    print('== bridge: a service that hangs and a tab closed meanwhile: no service is left')
    with connected(run, 'hang'):
        check(poll(lambda: '?hang&z=0 ' in run.run_file('requests.log')), 'hung service: the page\'s message did not reach it')
    check(run.service_ended(), 'hung service: the service still runs after the tab closed')


def held_reply(run):
    print('== bridge: a reply the service holds for 150 s reaches the page, and no other answer takes its place')
    with connected(run, 'hold=150') as (tab, _, _):
        held = poll(lambda: run.engine.holds(tab, 'transcript.length > 2'), 200, step=1)
        page = run.engine.page_state(tab)[0]
    after = re.findall(r'\?hold=150&z=0 .*\n(.*)', run.run_file('requests.log'))  # the request after the held one
    check(held and page[2] == 'c_addcomm: held:150', 'held reply: the page heard %r' % page)
    check(after and '?INFO&z=1 ' in after[0], 'held reply: the service was asked %r after the held request' % after)


def host_problems(run):
    print('== bridge: the user is told when the plug-in or the host is missing; pages see the plug-in only while both are there')
    engine = run.engine
    plugin = os.path.join(run.plugins, 'libtunvo_plugin_testroot.so')
    found = lambda: run.visit('', 'transcript.length > 0', show=False, page='classic.html', fresh=True)[:1]

    def button(expected_badge, words):
        """Opens the demo's probe page in a tab of its own (its element starts a host of its own) and waits
        until the toolbar button shows the badge, and the button's title and the popup say the words (the
        badge alone may still be the last problem's)."""
        said = []

        def shown():
            said[:] = engine.button_says()
            return said[0] == expected_badge and all(w in '%s %s' % tuple(said[1:]) for w in words)
        with engine.opened(run.url('mode=probe')):
            check(poll(shown, 30), 'host problems: the button shows %r, %r and the popup %r' % tuple(said))

    os.rename(plugin, plugin + '.aside')
    try:
        button('!', ['cannot be loaded', 'could not load the VPN plug-in', plugin])
        page = found()
        check(page == ['not found'], 'host problems: without the plug-in the page still finds it: %r' % page)
    finally:
        os.rename(plugin + '.aside', plugin)
    os.rename(engine.manifest_file, engine.manifest_file + '.aside')
    try:
        button('!', ['not installed', 'Install the Passway package'])
    finally:
        os.rename(engine.manifest_file + '.aside', engine.manifest_file)
    button('', ['Orvane Passway plugin, Ver.'])
    page = found()
    check(page == [FOUND], 'host problems: once both are back the page does not find the plug-in: %r' % page)


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
    parser.add_argument('--forcelist', action='store_true', help='Chromium: the extension force-installed by policy')
    parser.add_argument('--installed', action='store_true', help='Chromium or Firefox: the Debian package installed')
    args = parser.parse_args()
    build, source = os.path.abspath(args.build), os.path.abspath(args.source)
    # A run stopped by SIGTERM (a time-out, a kill) still ends its browser and removes what it wrote.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    if (args.installed or args.forcelist) and (os.geteuid() != 0 or args.engine == 'qtwebkit' or
                                             args.forcelist and args.engine == 'firefox'):
        print('e2e (%s): the installed package\'s runs (Chromium, Firefox) and the forcelist run (Chromium) need '
              'root; skipped' % args.engine)
        return 77
    host = os.path.join(build, 'host', 'passway-host') if args.host is None else args.host
    options = {'installed': True} if args.installed else {'forcelist': True} if args.forcelist else {}
    engine = ENGINES[args.engine](build, source, host, window=args.window, **options)
    if engine.bridge and not engine.host:
        print('e2e (%s): this build has no passway-host' % engine.name)
        return 77
    visits = INSTALLED_VISITS if args.installed or args.forcelist else VISITS + (BRIDGE_VISITS if engine.bridge else [])
    try:
        with installed_package(build) if args.installed else contextlib.nullcontext():
            return run_visits(build, source, engine, visits, args.only, CLIENT_ROOT if args.installed else None)
    except Failure as failure:  # the package's
        print('e2e (%s, installed package) FAILED: %s' % (engine.name, failure))
        return 1


def run_visits(build, source, engine, visits, only, root):
    missing = engine.missing()
    if missing:
        print('e2e (%s): %s' % (engine.name, missing))
        return 1 if os.environ.get('CI') else 77
    started = time.monotonic()
    visits = [visit for visit in visits if not only or visit.__name__ in only.split(',')]
    run = Run(build, source, engine, root)
    try:
        engine.start(run)
        for visit in visits:
            began = time.monotonic()
            visit(run)
            print('   (%.2f s)' % (time.monotonic() - began))  # timed, never checked
        print('e2e (%s): %d visits passed, 0 failed in %.1f s' % (engine.name, len(visits), time.monotonic() - started))
        return 0
    except (Failure, RuntimeError) as failure:  # a check, the browser, a step
        print('e2e (%s) FAILED: %s' % (engine.name, failure))
        print('plug-in log (tail):\n' + run.plugin_log()[-3000:])
        print(engine.log_tail())
        return 1
    finally:
        engine.close()
        run.close()


def dpkg_installed():
    status = subprocess.run(['dpkg-query', '-W', '-f=${Status}', PACKAGE], capture_output=True, text=True).stdout
    return status.endswith(' installed')


@contextlib.contextmanager
def installed_package(build):
    """The build's test package (package/CPackTestConfig.cmake) installed on this machine while the block runs
    (root only), then purged, after which nothing of ours may be left: none of the package's files or folders,
    no VPN client under the production install root that the visits filled."""
    check(not dpkg_installed(), '%s is installed on this machine: remove it first' % PACKAGE)
    check(not os.path.exists(CLIENT_TOP), '%s exists (a VPN client?): the run would fill and remove it' % CLIENT_TOP)
    with tempfile.TemporaryDirectory(prefix='passway-e2e-package-') as out:
        made = subprocess.run(['cpack', '--config', os.path.join(build, 'package', 'CPackTestConfig.cmake'), '-B', out],
                              cwd=build, capture_output=True, text=True)
        deb = (glob.glob(os.path.join(out, '*.deb')) + [None])[0]
        check(made.returncode == 0 and deb, 'cpack made no package:\n' + made.stdout + made.stderr)
        listing = subprocess.run(['dpkg-deb', '-c', deb], capture_output=True, text=True, check=True).stdout
        files = [line.split(None, 5)[5][1:].rstrip('/') for line in listing.splitlines()]
        new = [path for path in files if path and not os.path.exists(path)]
        subprocess.run(['dpkg', '-i', deb], check=True, stdout=subprocess.DEVNULL)
        print('package: %s installed' % os.path.basename(deb))
    try:
        yield
    finally:
        subprocess.run(['dpkg', '-P', PACKAGE], check=True, stdout=subprocess.DEVNULL)
        shutil.rmtree(CLIENT_TOP, ignore_errors=True)
        left = [path for path in new + [CLIENT_TOP] if os.path.exists(path)]
        check(not dpkg_installed() and not left, 'left behind after dpkg -P: %s' % (left or PACKAGE))
        print('package: purged; nothing of it is left')


if __name__ == '__main__':
    sys.exit(main())
