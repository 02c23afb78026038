#!/usr/bin/env python3
"""The end-to-end run in a real browser engine (QtWebKit): the demo portal, the test plug-in, the fake
service. Five visits: install a signed package; connect and relay messages; probe a running service;
leave the page (the service stops); a package with a bad signature (nothing is installed).

usage: run_e2e.py BUILD_DIR SOURCE_DIR [--demo]
Exit 0 when every check holds, 1 on the first failure, 77 when the browser engine is missing outside CI.
With --demo the transcript is printed and the screenshot path announced, and nothing is asserted twice."""
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import urllib.parse

QT_PYTHON = '/usr/bin/python3'  # the Qt bindings live with Debian's interpreter


class Failure(Exception):
    pass


def check(condition, message):
    if not condition:
        raise Failure(message)


def free_port():
    with socket.socket() as s:
        s.bind(('127.0.0.1', 0))
        return s.getsockname()[1]


def read(path):
    try:
        with open(path, errors='replace') as f:
            return f.read()
    except OSError:
        return ''


class Run:
    def __init__(self, build, source):
        self.build, self.source = build, source
        self.root = os.path.join(build, 'testroot') + '/'
        self.work = tempfile.mkdtemp(prefix='passway-e2e-')
        self.plugins = os.path.join(self.work, 'plugins')
        self.home = os.path.join(self.work, 'home')
        os.makedirs(self.plugins)
        os.makedirs(self.home)
        shutil.copy(os.path.join(build, 'plugin', 'libtunvo_plugin_testroot.so'), self.plugins)
        self.package = os.path.join(self.work, 'package')
        shutil.copy(os.path.join(source, 'tests', 'data', 'test-installer.sh'), self.package)
        sign = os.path.join(build, 'tools', 'passway-sign')
        data = os.path.join(source, 'tests', 'data')
        self.signature = subprocess.check_output([sign, os.path.join(data, 'test-signing-key.pem'), self.package],
                                                 text=True).strip()
        self.bad_signature = subprocess.check_output(
            [sign, os.path.join(data, 'test-other-key.pem'), self.package], text=True).strip()
        self.port = free_port()
        self.server = subprocess.Popen([sys.executable, os.path.join(source, 'e2e', 'portal_server.py'),
                                        str(self.port), os.path.join(source, 'e2e', 'portal'), self.package],
                                       stderr=open(os.path.join(self.work, 'server.log'), 'w'))
        for _ in range(50):
            try:
                socket.create_connection(('127.0.0.1', self.port), timeout=0.2).close()
                break
            except OSError:
                time.sleep(0.1)
        self.env = dict(os.environ, HOME=self.home, QTWEBKIT_PLUGIN_PATH=self.plugins, PASSWAY_TEST_ROOT=self.root,
                        FAKE_SERVICE=os.path.join(build, 'tests', 'support', 'fake_tunvo_service'),
                        XDG_RUNTIME_DIR=self.work)
        self.reset_root()

    def reset_root(self):
        self.stop_service()
        shutil.rmtree(self.root, ignore_errors=True)
        os.makedirs(os.path.join(self.root, 'var', 'run'))

    def service_pid(self):
        text = read(os.path.join(self.root, 'var', 'run', 'tunvo.pid')).strip()
        return int(text) if text.isdigit() else 0

    def stop_service(self):
        pid = self.service_pid()
        if pid:
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass

    def visit(self, query, seconds, screenshot=None):
        url = 'http://127.0.0.1:%d/index.html?%s' % (self.port, query)
        args = [QT_PYTHON, os.path.join(self.source, 'e2e', 'browser_host.py'), url, str(seconds)]
        if screenshot:
            args.append(screenshot)
        out = subprocess.run(args, env=self.env, capture_output=True, text=True, timeout=120).stdout
        return [line.strip().strip('"') for line in out.splitlines() if line.strip()]

    def close(self):
        self.stop_service()
        self.server.terminate()
        self.server.wait()
        shutil.rmtree(self.work, ignore_errors=True)


def engine_available():
    probe = subprocess.run([QT_PYTHON, '-c', 'from PyQt5 import QtWebKitWidgets'], capture_output=True)
    return probe.returncode == 0 and shutil.which('xvfb-run') is not None or os.environ.get('DISPLAY')


def main():
    build, source = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
    demo = '--demo' in sys.argv
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
        requests = read(os.path.join(run.root, 'var', 'run', 'requests.log'))
        for expected in ['c_addcomm: connected', 'c_addcomm: ack:hello&z=0', 'c_addcomm: pong',
                         'c_addcomm: ack:bye&z=2']:
            check(expected in page, 'connect: the page did not hear "%s"' % expected)
        for expected in ['?CONNECT ', '?hello&z=0 ', '?say=pong&z=1 ', '?bye&z=2 ']:
            check(expected in requests, 'connect: the service did not receive "%s"' % expected)
        check('user=demo&browser_pid=' in read(os.path.join(run.root, 'var', 'run', 'params.txt')),
              'connect: the service did not get the page parameters')

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
        after = read(os.path.join(run.root, 'var', 'run', 'requests.log')).splitlines()[before:]
        check(after and after[0].startswith('GET /vpn.php?INFO '), 'probe: the service was not asked ?INFO')
        check(len(after) == 1, 'probe: the probe made %d requests instead of one' % len(after))
        check(page == ['c_addcomm: ack:INFO'], 'probe: the page heard %r' % page)
        run.stop_service()

        print('== visit 5: a package with a bad signature')
        run.reset_root()
        page = run.visit('mode=install&size=%d&signature=%s' % (size, urllib.parse.quote(run.bad_signature)), 5)
        print('\n'.join('   ' + line for line in page))
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
