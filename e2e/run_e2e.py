#!/usr/bin/env python3
"""The end-to-end run in a real browser engine (QtWebKit): the demo portal, the test plug-in, the fake
service. Five visits: install a signed package; connect and relay messages; probe a running service;
leave the page (the service stops); a package with a bad signature (nothing is installed).

usage: run_e2e.py BUILD_DIR SOURCE_DIR
Prints what the page heard on each visit and where the screenshot after the install is. Exit 0 when every
check holds, 1 on the first failure, 77 when the browser engine is missing outside CI."""
import json
import os
import subprocess
import sys
import time
import urllib.parse

sys.dont_write_bytecode = True  # importing the shared module leaves no __pycache__ in the source tree
from demo_setup import DemoPortal, read

QT_PYTHON = '/usr/bin/python3'  # the Qt bindings live with Debian's interpreter


class Failure(Exception):
    pass


def check(condition, message):
    if not condition:
        raise Failure(message)


class Run(DemoPortal):
    """The shared set-up plus a home folder for the browser, whose environment leads it to the plug-in and
    hands the installer the test root and the service program."""

    def __init__(self, build, source):
        super().__init__(build, source)
        self.home = os.path.join(self.work, 'home')
        os.makedirs(self.home)
        self.env = dict(os.environ, HOME=self.home, QTWEBKIT_PLUGIN_PATH=self.plugins, XDG_RUNTIME_DIR=self.work,
                        **self.installer_env)

    def visit(self, query, seconds, screenshot=None):
        args = [QT_PYTHON, os.path.join(self.source, 'e2e', 'browser_host.py'), self.url(query), str(seconds)]
        if screenshot:
            args.append(screenshot)
        out = subprocess.run(args, env=self.env, capture_output=True, text=True, timeout=120).stdout
        page, self.status = [], None
        for line in out.splitlines():
            try:
                item = json.loads(line)
            except ValueError:
                continue  # not the host's output
            if isinstance(item, dict):
                self.status = item.get('status')
            else:
                page.append(str(item))
        return page


def main():
    build, source = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
    if not os.path.exists(QT_PYTHON) or subprocess.run([QT_PYTHON, '-c', 'from PyQt5 import QtWebKitWidgets'],
                                                       capture_output=True).returncode != 0:
        print('e2e: QtWebKit for Python (python3-pyqt5.qtwebkit) is missing')
        return 1 if os.environ.get('CI') else 77
    run = Run(build, source)
    screenshot = os.path.join(build, 'e2e', 'portal-after-install.png')
    os.makedirs(os.path.dirname(screenshot), exist_ok=True)
    try:
        size = os.path.getsize(run.package)

        print('== visit 1: install the client')
        page = run.visit('mode=install&size=%d&signature=%s' % (size, urllib.parse.quote(run.signature)), 6,
                         screenshot)
        print('\n'.join('   ' + line for line in page))
        print('   status line: %s' % run.status)
        for expected in ['download start: %d' % size, 'progress: 0', 'progress: %d' % size, 'download done',
                         'installing', 'installation ok']:
            check(expected in page, 'install: the page did not hear "%s"' % expected)
        check(read(os.path.join(run.root, 'var', 'run', 'installer.log')) == 'SUDO\ndemo-password\n',
              'install: the installer did not get SUDO and the password on its input')
        check(os.path.exists(os.path.join(run.root, 'tunvo_x86_64')), 'install: no service executable installed')
        check(os.path.getsize(screenshot) > 0, 'install: no screenshot')
        print('   screenshot: ' + screenshot)

        print('== visit 2: connect and relay')
        page = run.visit('mode=connect&answers=hello,say%3Dpong,bye', 4)
        print('\n'.join('   ' + line for line in page[:8]))
        print('   status line: %s' % run.status)
        requests = read(os.path.join(run.root, 'var', 'run', 'requests.log'))
        for expected in ['c_addcomm: connected', 'c_addcomm: ack:hello&z=0', 'c_addcomm: pong',
                         'c_addcomm: ack:bye&z=2']:
            check(expected in page, 'connect: the page did not hear "%s"' % expected)
        for expected in ['?CONNECT ', '?hello&z=0 ', '?say=pong&z=1 ', '?bye&z=2 ']:
            check(expected in requests, 'connect: the service did not receive "%s"' % expected)
        check('user=demo&browser_pid=' in read(os.path.join(run.root, 'var', 'run', 'params.txt')),
              'connect: the service did not get the page parameters')
        check(run.status == 'Connected', 'connect: the status line reads %r, not "Connected"' % run.status)

        print('== visit 3: leaving the page stopped the service')
        for _ in range(50):
            if not run.service_pid():
                break
            time.sleep(0.1)
        check(run.service_pid() == 0, 'leave: the service is still running after the page was left')

        print('== visit 4: probe a running service')
        starter = subprocess.run([os.path.join(run.root, 'tunvo_x86_64')], input='user=probe&', text=True,
                                 env=run.env, timeout=30)
        check(starter.returncode == 0 and run.service_pid(), 'probe: the service did not start')
        before = read(os.path.join(run.root, 'var', 'run', 'requests.log')).count('\n')
        page = run.visit('mode=probe', 3)
        print('\n'.join('   ' + line for line in page))
        print('   status line: %s' % run.status)
        after = read(os.path.join(run.root, 'var', 'run', 'requests.log')).splitlines()[before:]
        check(after and after[0].startswith('GET /vpn.php?INFO '), 'probe: the service was not asked ?INFO')
        check(len(after) == 1, 'probe: the probe made %d requests instead of one' % len(after))
        check(page == ['c_addcomm: ack:INFO'], 'probe: the page heard %r' % page)
        run.stop_service()

        print('== visit 5: a package with a bad signature')
        run.reset_root()
        page = run.visit('mode=install&size=%d&signature=%s' % (size, urllib.parse.quote(run.bad_signature)), 5)
        print('\n'.join('   ' + line for line in page))
        print('   status line: %s' % run.status)
        check('installation failed' in page, 'bad signature: the page did not hear VPNInstallationFailed')
        check(not os.path.exists(os.path.join(run.root, 'tunvo_x86_64')), 'bad signature: something was installed')
        check(not read(os.path.join(run.root, 'var', 'run', 'installer.log')), 'bad signature: the installer ran')
        print('e2e: 5 visits passed, 0 failed')
        return 0
    except Failure as failure:
        print('e2e FAILED: %s' % failure)
        print('plug-in log (tail):\n' + read(os.path.join(run.home, '.Orvane', 'tunvo_plugin.log'))[-3000:])
        return 1
    finally:
        run.close()


if __name__ == '__main__':
    sys.exit(main())
