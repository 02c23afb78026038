"""What the end-to-end run (run_e2e.py) and the served demo (serve_demo.py) share: a temporary folder with the
test plug-in and a signed package, the demo portal's web server on loopback, and the test plug-in's install
root, where the installer puts the stand-in service (build/tests/support/fake_tunvo_service)."""
import os
import shlex
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time


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


def port_free(port):
    with socket.socket() as s:
        try:
            s.bind(('127.0.0.1', port))
            return True
        except OSError:
            return False


def listening(port, host='127.0.0.1'):
    try:
        socket.create_connection((host, port), timeout=0.2).close()
        return True
    except OSError:
        return False


class DemoPortal:
    """The temporary folder `work` (the plug-in in `plugins`, the package), the portal server on `port`,
    the signatures `signature` (good) and `bad_signature` (another key), and the test root `root`.

    The package is tests/data/test-installer.sh. The installer takes the test root and the service program
    from its environment (`installer_env`); with `bake_installer_env` those two are written into the package
    itself, so that a browser started without them installs into the same place. `server_output` is where
    the server logs its requests: a file in `work` by default, or None for this process's standard error.
    With `detach_server` the server runs in a session of its own, out of reach of the terminal's Ctrl-C."""

    def __init__(self, build, source, port=0, bake_installer_env=False, server_output='file', detach_server=False,
                 prefix='passway-e2e-'):
        self.build, self.source = build, source
        self.root = os.path.join(build, 'testroot') + '/'
        self.fake_service = os.path.join(build, 'tests', 'support', 'fake_tunvo_service')
        self.installer_env = {'PASSWAY_TEST_ROOT': self.root, 'FAKE_SERVICE': self.fake_service}
        self.server = None
        self.work = tempfile.mkdtemp(prefix=prefix)
        try:
            self.plugins = os.path.join(self.work, 'plugins')
            os.makedirs(self.plugins)
            shutil.copy(os.path.join(build, 'plugin', 'libtunvo_plugin_testroot.so'), self.plugins)
            self.package = os.path.join(self.work, 'package')
            self.write_package(bake_installer_env)
            sign = os.path.join(build, 'tools', 'passway-sign')
            data = os.path.join(source, 'tests', 'data')
            self.signature = subprocess.check_output(
                [sign, os.path.join(data, 'test-signing-key.pem'), self.package], text=True).strip()
            self.bad_signature = subprocess.check_output(
                [sign, os.path.join(data, 'test-other-key.pem'), self.package], text=True).strip()
            if port and not port_free(port):
                raise RuntimeError('port %d is in use' % port)
            self.port = port or free_port()
            if server_output == 'file':
                server_output = open(os.path.join(self.work, 'server.log'), 'w')
            self.server = subprocess.Popen([sys.executable, os.path.join(source, 'e2e', 'portal_server.py'),
                                            str(self.port), os.path.join(source, 'e2e', 'portal'), self.package],
                                           stderr=server_output, start_new_session=detach_server)
            for _ in range(50):
                if listening(self.port) or self.server.poll() is not None:
                    break
                time.sleep(0.1)
            if self.server.poll() is not None:
                raise RuntimeError('the portal server did not start on port %d' % self.port)
            self.reset_root()
        except BaseException:
            self.close()
            raise

    def write_package(self, bake_installer_env):
        installer = os.path.join(self.source, 'tests', 'data', 'test-installer.sh')
        if not bake_installer_env:
            shutil.copy(installer, self.package)
            return
        lines = read(installer).splitlines(keepends=True)
        settings = ''.join('%s=%s\n' % (name, shlex.quote(value)) for name, value in self.installer_env.items())
        with open(self.package, 'w') as f:
            f.write(lines[0])
            f.write('# The demo package: these settings are part of it.\n')
            f.write(settings)
            f.write('export %s\n' % ' '.join(self.installer_env))
            f.writelines(lines[1:])

    def url(self, query=''):
        return 'http://127.0.0.1:%d/index.html%s' % (self.port, '?' + query if query else '')

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
        if not pid:
            return
        argv0 = read('/proc/%d/cmdline' % pid).split('\0')[0]
        if not argv0 or os.path.realpath(argv0) != os.path.realpath(os.path.join(self.root, 'tunvo_x86_64')):
            return  # gone, or a stale pid file naming someone else's process
        try:
            os.kill(pid, signal.SIGKILL)
        except ProcessLookupError:
            pass

    def close(self):
        self.stop_service()
        if self.server is not None and self.server.poll() is None:
            self.server.terminate()
            self.server.wait()
        shutil.rmtree(self.work, ignore_errors=True)
