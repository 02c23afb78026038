#!/usr/bin/env python3
"""Serves the demo portal on loopback for a browser of your own: the portal page, a client package signed
now with the test key, the test plug-in in a temporary folder (for MOZ_PLUGIN_PATH, or PASSWAY_HOST_PLUGIN
with the extension), and an empty test root into which the package installs the stand-in service. For
Chromium and Firefox it prepares throwaway profiles in the temporary folder: Chromium's holds the host
manifest (pointing at the build's passway-host), Firefox's the unsigned extension. Prints the addresses to
open and the browsers' command lines, and runs until Ctrl-C; then it stops the portal server and the
stand-in service and removes its temporary folder.

usage: serve_demo.py BUILD_DIR SOURCE_DIR [--port N]
The build must hold libtunvo_plugin_testroot.so, passway-sign and fake_tunvo_service (scripts/serve-demo
builds them first). Run the browser as the user who configured the build: the test plug-in accepts a
service executable owned by that user only."""
import argparse
import json
import os
import shlex
import signal
import socket
import subprocess
import sys
import time
import urllib.parse

sys.dont_write_bytecode = True  # importing the shared module leaves no __pycache__ in the source tree
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', '..', 'e2e'))
from demo_setup import DemoPortal, listening, read

SERVICE_PORT = 44444  # where the plug-in finds the service: fixed in the plug-in
HOST_NAME = 'com.orvane.passway'


def port_free(port):
    with socket.socket() as s:
        try:
            s.bind(('127.0.0.1', port))
            return True
        except OSError:
            return False


class ServedPortal(DemoPortal):
    """The end-to-end run's portal, for a browser started by hand: the installer's two settings are written
    into the package itself (a browser started without them installs into the same place), the server logs
    to this process's standard error and runs in a session of its own, out of reach of the terminal's Ctrl-C."""

    def __init__(self, build, source, port):
        if port and not port_free(port):
            raise RuntimeError('port %d is in use' % port)
        super().__init__(build, source, port, prefix='passway-demo-')

    def write_package(self, installer):
        lines = read(installer).splitlines(keepends=True)
        with open(self.package, 'w') as f:
            f.write(lines[0])
            f.write('# The demo package: these settings are part of it.\n')
            f.writelines('%s=%s\n' % (name, shlex.quote(value)) for name, value in self.installer_env.items())
            f.write('export %s\n' % ' '.join(self.installer_env))
            f.writelines(lines[1:])

    def start_server(self, argv):
        return subprocess.Popen(argv, start_new_session=True)


def chromium_profile(portal, build, source):
    """A throwaway Chromium profile whose host manifest names the build's passway-host (Chromium started
    with --user-data-dir reads host manifests from the profile, not from ~/.config/chromium)."""
    profile = os.path.join(portal.work, 'chromium-profile')
    os.makedirs(os.path.join(profile, 'NativeMessagingHosts'))
    with open(os.path.join(source, 'extension', 'host-manifest', 'chromium', HOST_NAME + '.json.in')) as f:
        manifest = f.read().replace('@PASSWAY_HOST_PATH@', os.path.join(build, 'host', 'passway-host')).replace(
            '@PASSWAY_EXTENSION_ID@', read(os.path.join(build, 'extension', 'chromium-id.txt')).strip())
    with open(os.path.join(profile, 'NativeMessagingHosts', HOST_NAME + '.json'), 'w') as f:
        f.write(manifest)
    return profile


def firefox_profile(portal, build):
    """A throwaway Firefox profile with the unsigned extension installed (Firefox ESR honours
    xpinstall.signatures.required=false). Firefox reads host manifests only from ~/.mozilla or system-wide."""
    profile = os.path.join(portal.work, 'firefox-profile')
    os.makedirs(os.path.join(profile, 'extensions'))
    with open(os.path.join(build, 'extension', 'firefox', 'manifest.json')) as f:
        ident = json.load(f)['browser_specific_settings']['gecko']['id']
    with open(os.path.join(build, 'extension', 'passway-firefox.xpi'), 'rb') as f, \
            open(os.path.join(profile, 'extensions', ident + '.xpi'), 'wb') as out:
        out.write(f.read())
    with open(os.path.join(profile, 'user.js'), 'w') as f:
        f.write('user_pref("xpinstall.signatures.required", false);\n'
                'user_pref("extensions.autoDisableScopes", 0);\n'
                'user_pref("browser.shell.checkDefaultBrowser", false);\n')
    return profile


def main():
    parser = argparse.ArgumentParser(description='Serve the demo portal for a browser of your own.')
    parser.add_argument('build')
    parser.add_argument('source')
    parser.add_argument('--port', type=int, default=0, help='the portal server port (default: any free one)')
    args = parser.parse_args()
    build, source = os.path.abspath(args.build), os.path.abspath(args.source)
    needed = [os.path.join(build, 'plugin', 'libtunvo_plugin_testroot.so'),
              os.path.join(build, 'tools', 'passway-sign'),
              os.path.join(build, 'tests', 'support', 'fake_tunvo_service'),
              os.path.join(build, 'host', 'passway-host'),
              os.path.join(build, 'extension', 'passway-firefox.xpi')]
    missing = [path for path in needed if not os.path.exists(path)]
    if missing:
        print('serve-demo: not built yet (run scripts/serve-demo without --no-build): %s' % ', '.join(missing),
              file=sys.stderr)
        return 1

    # Ctrl-C reaches only this process (the server runs in its own session); SIGTERM ends the same way.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    try:
        portal = ServedPortal(build, source, args.port)
    except RuntimeError as error:
        print('serve-demo: %s' % error, file=sys.stderr)
        return 1
    try:
        size = os.path.getsize(portal.package)
        install = portal.url('mode=install&size=%d&signature=%s' % (size, urllib.parse.quote(portal.signature, safe='')))
        bad = portal.url('mode=install&size=%d&signature=%s' % (size, urllib.parse.quote(portal.bad_signature, safe='')))
        connect = portal.url('mode=connect&answers=hello,say%3Dpong,bye')
        probe = portal.url('mode=probe')
        home = os.path.expanduser('~')
        plugin = os.path.join(portal.plugins, 'libtunvo_plugin_testroot.so')
        chromium = chromium_profile(portal, build, source)
        firefox = firefox_profile(portal, build)
        print('Passway demo portal: %s' % portal.url())
        print('test plug-in:        %s' % plugin)
        print('test root:           %s (emptied now; the package installs the stand-in service here)' % portal.root)
        print()
        print('Open it in one of these browsers (each in a profile of its own, so that the test plug-in is the one used):')
        print()
        print('  Chromium, with the extension and passway-host (approve the portal with the Passway button\'s')
        print('  "Allow this portal", in the extensions menu):')
        # The host's guard watches the test plug-in's service, under the test root.
        host_env = 'PASSWAY_HOST_PLUGIN=%s PASSWAY_HOST_CLIENT_ROOT=%s' % (shlex.quote(plugin), shlex.quote(portal.root))
        print('    %s chromium --user-data-dir=%s --load-extension=%s %s'
              % (host_env, shlex.quote(chromium), shlex.quote(os.path.join(build, 'extension', 'chromium')),
                 shlex.quote(install)))
        print()
        print('  Firefox ESR, with the extension and passway-host (approve likewise); it finds the host manifest in')
        print('  ~/.mozilla/native-messaging-hosts: install it once with `cmake --install build --component user-host`:')
        print('    %s firefox-esr --no-remote --profile %s %s' % (host_env, shlex.quote(firefox), shlex.quote(install)))
        if not os.path.exists(os.path.join(home, '.mozilla', 'native-messaging-hosts', HOST_NAME + '.json')):
            print('    (not installed yet for %s)' % home)
        print()
        print('  qutebrowser with QtWebKit, which loads the plug-in itself (NPAPI):')
        print('    MOZ_PLUGIN_PATH=%s qutebrowser --backend webkit -T -s content.plugins true %s'
              % (shlex.quote(portal.plugins), shlex.quote(install)))
        print()
        print('and open, in this order:')
        print('  install  %s' % install)
        print('  connect  %s' % connect)
        print('  probe    %s' % probe)
        print('           (asks a running service ?INFO: keep the connect page open in another tab)')
        print('  refused  %s' % bad)
        print('           (the same package with a signature made by another key: nothing is installed)')
        print()
        print('The plug-in logs to ~/.Orvane/tunvo_plugin.log of the browser\'s user (here %s).' % home)
        if listening(SERVICE_PORT):
            print('Note: 127.0.0.1:%d is already taken (an e2e run or another demo?): the stand-in service '
                  'cannot start while it is.' % SERVICE_PORT)
        print('Requests to the portal follow; Ctrl-C stops everything.', flush=True)
        while portal.server.poll() is None:
            time.sleep(0.5)
        print('serve-demo: the portal server stopped (exit %d)' % portal.server.returncode, file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        return 0
    finally:
        portal.close()
        print('\nserve-demo: stopped the portal server and the stand-in service, removed %s' % portal.work,
              file=sys.stderr, flush=True)


if __name__ == '__main__':
    sys.exit(main())
