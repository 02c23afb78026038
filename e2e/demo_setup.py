"""What the end-to-end run (run_e2e.py) and the served demo (scripts/lib/serve_demo.py) share: a temporary
folder with the test plug-in and a signed package, the demo portal served on loopback by Python's http.server,
and the test plug-in's install root, where the installer puts the stand-in service
(build/tests/support/fake_tunvo_service)."""
import contextlib
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

WAIT = 60  # seconds: the longest wait for anything a visit expects


def poll(condition, seconds=None, step=0.1):
    """condition's first true value within `seconds`, else its last value."""
    deadline = time.monotonic() + (WAIT if seconds is None else seconds)
    while True:
        value = condition()
        if value or time.monotonic() > deadline:
            return value
        time.sleep(step)


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


def listening(port, host='127.0.0.1'):
    try:
        socket.create_connection((host, port), timeout=0.2).close()
        return True
    except OSError:
        return False


class DemoPortal:
    """The temporary folder `work` (the plug-in in `plugins`, the package), the portal server on `port`,
    the signatures `signature` (good) and `bad_signature` (another key), and the test root `root`.

    The package is tests/data/test-installer.sh; the installer takes the test root and the service program
    from its environment (`installer_env`). The server logs its requests to a file in `work`."""

    def __init__(self, build, source, port=0, prefix='passway-e2e-', root=None):
        self.build, self.source = build, source
        self.root = root or os.path.join(build, 'testroot') + '/'
        self.installer_env = {'PASSWAY_TEST_ROOT': self.root,
                              'FAKE_SERVICE': os.path.join(build, 'tests', 'support', 'fake_tunvo_service')}
        self.server = None
        self.work = tempfile.mkdtemp(prefix=prefix)
        try:
            self.plugins = os.path.join(self.work, 'plugins')
            os.makedirs(self.plugins)
            shutil.copy(os.path.join(build, 'plugin', 'libtunvo_plugin_testroot.so'), self.plugins)
            # The portal's web site: its page and the client package (served as application/x-tar).
            site = os.path.join(self.work, 'site')
            shutil.copytree(os.path.join(source, 'e2e', 'portal'), site)
            self.package = os.path.join(site, 'package.tar')
            data = os.path.join(source, 'tests', 'data')
            self.write_package(os.path.join(data, 'test-installer.sh'))
            # The package signed with the test key, and with another key.
            self.signature, self.bad_signature = (subprocess.check_output(
                [os.path.join(build, 'tools', 'passway-sign'), os.path.join(data, key), self.package], text=True).strip()
                for key in ('test-signing-key.pem', 'test-other-key.pem'))
            self.port = port or free_port()
            # Python's own server answers requests side by side: a browser may open a connection ahead and
            # leave it idle, which would hold up a server that serves one connection at a time.
            self.server = self.start_server([sys.executable, '-m', 'http.server', '--bind', '127.0.0.1',
                                             '--directory', site, str(self.port)])
            poll(lambda: listening(self.port) or self.server.poll() is not None, 5)
            if self.server.poll() is not None:
                raise RuntimeError('the portal server did not start on port %d' % self.port)
            self.reset_root()
        except BaseException:
            self.close()
            raise

    def write_package(self, installer):
        shutil.copy(installer, self.package)

    def start_server(self, argv):
        return subprocess.Popen(argv, stderr=open(os.path.join(self.work, 'server.log'), 'w'))

    def url(self, query='', page='index.html', site='127.0.0.1'):
        """The portal's page; under another name `site`, another site (names under .test reach the server too)."""
        return 'http://%s:%d/%s%s' % (site, self.port, page, '?' + query if query else '')

    def reset_root(self):
        """Stops the service and leaves an empty test root (with var/run/)."""
        self.stop_service()
        shutil.rmtree(self.root, ignore_errors=True)
        os.makedirs(os.path.join(self.root, 'var', 'run'))

    def service_pid(self):
        text = read(os.path.join(self.root, 'var', 'run', 'tunvo.pid')).strip()
        return int(text) if text.isdigit() else 0

    def stop_service(self):
        """Kills the process the test root's pid file names, when it is the installed service."""
        pid = self.service_pid()
        argv0 = read('/proc/%d/cmdline' % pid).split('\0')[0] if pid else ''
        # Not when it is gone, or when a stale pid file names someone else's process.
        if argv0 and os.path.realpath(argv0) == os.path.realpath(os.path.join(self.root, 'tunvo_x86_64')):
            with contextlib.suppress(ProcessLookupError):
                os.kill(pid, signal.SIGKILL)

    def close(self):
        self.stop_service()
        if self.server is not None and self.server.poll() is None:
            self.server.terminate()
            self.server.wait()
        shutil.rmtree(self.work, ignore_errors=True)
