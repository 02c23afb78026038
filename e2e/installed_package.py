"""The Debian package installed on this machine for an end-to-end run, and removed after it (root only): the
test package of the build (package/CPackTestConfig.cmake), made into the run's own folder, `dpkg -i`, then
`dpkg -P`, after which nothing of ours may be left: none of the package's files or folders, no VPN client
under the production install root that the visits filled."""
import os
import shutil
import subprocess

PACKAGE = 'passway-plugin'
CLIENT_ROOT = '/usr/local/lib/Orvane/SSLVPN/'  # the production plug-in's install root (the visits fill it)


class PackageError(Exception):
    pass


def installed(package=PACKAGE):
    status = subprocess.run(['dpkg-query', '-W', '-f=${Status}', package], capture_output=True, text=True).stdout
    return status.endswith(' installed')


class InstalledPackage:
    def __init__(self, build, work):
        self.build, self.work = build, work
        self.client_top = os.path.dirname(CLIENT_ROOT.rstrip('/'))  # /usr/local/lib/Orvane
        self.deb, self.files, self.installed = None, [], False

    def __enter__(self):
        if installed():
            raise PackageError('%s is installed on this machine: remove it first' % PACKAGE)
        if os.path.exists(self.client_top):
            raise PackageError('%s exists (a VPN client?): the run would fill and remove it' % self.client_top)
        out = os.path.join(self.work, 'package')
        made = subprocess.run(['cpack', '--config', os.path.join(self.build, 'package', 'CPackTestConfig.cmake'),
                               '-B', out], cwd=self.build, capture_output=True, text=True)
        debs = [name for name in os.listdir(out) if name.endswith('.deb')] if os.path.isdir(out) else []
        if made.returncode != 0 or not debs:
            raise PackageError('cpack made no package:\n' + made.stdout + made.stderr)
        self.deb = os.path.join(out, debs[0])
        listing = subprocess.run(['dpkg-deb', '-c', self.deb], capture_output=True, text=True, check=True).stdout
        self.files = [line.split(None, 5)[5][1:].rstrip('/') for line in listing.splitlines()]
        self.new = [path for path in self.files if path and not os.path.exists(path)]
        subprocess.run(['dpkg', '-i', self.deb], check=True, stdout=subprocess.DEVNULL)
        self.installed = True
        print('package: %s installed' % os.path.basename(self.deb))
        return self

    def __exit__(self, *failure):
        self.remove()

    def remove(self):
        """dpkg -P, the client the visits installed, and the check that nothing of ours is left."""
        if self.installed:
            subprocess.run(['dpkg', '-P', PACKAGE], check=True, stdout=subprocess.DEVNULL)
            self.installed = False
        shutil.rmtree(self.client_top, ignore_errors=True)
        left = [path for path in self.new + [self.client_top] if os.path.exists(path)]
        if installed() or left:
            raise PackageError('left behind after dpkg -P: %s' % (left or PACKAGE))
        print('package: purged; nothing of it is left')
