#!/usr/bin/env python3
"""Serves the demo portal on loopback for a browser of your own: the portal page, a client package signed
now with the test key, the test plug-in in a temporary folder for MOZ_PLUGIN_PATH, and an empty test root
into which the package installs the stand-in service. Prints the addresses to open and runs until Ctrl-C;
then it stops the portal server and the stand-in service and removes its temporary folder.

usage: serve_demo.py BUILD_DIR SOURCE_DIR [--port N]
The build must hold libtunvo_plugin_testroot.so, passway-sign and fake_tunvo_service (scripts/serve-demo
builds them first). Run the browser as the user who configured the build: the test plug-in accepts a
service executable owned by that user only."""
import argparse
import os
import shlex
import signal
import sys
import time
import urllib.parse

sys.dont_write_bytecode = True  # importing the shared module leaves no __pycache__ in the source tree
from demo_setup import DemoPortal, listening

SERVICE_PORT = 44444  # where the plug-in finds the service: fixed in the plug-in


def main():
    parser = argparse.ArgumentParser(description='Serve the demo portal for a browser of your own.')
    parser.add_argument('build')
    parser.add_argument('source')
    parser.add_argument('--port', type=int, default=0, help='the portal server port (default: any free one)')
    args = parser.parse_args()
    build, source = os.path.abspath(args.build), os.path.abspath(args.source)
    needed = [os.path.join(build, 'plugin', 'libtunvo_plugin_testroot.so'),
              os.path.join(build, 'tools', 'passway-sign'),
              os.path.join(build, 'tests', 'support', 'fake_tunvo_service')]
    missing = [path for path in needed if not os.path.exists(path)]
    if missing:
        print('serve-demo: not built yet (run scripts/serve-demo without --no-build): %s' % ', '.join(missing),
              file=sys.stderr)
        return 1

    # Ctrl-C reaches only this process (the server runs in its own session); SIGTERM ends the same way.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    try:
        portal = DemoPortal(build, source, port=args.port, bake_installer_env=True, server_output=None,
                            detach_server=True, prefix='passway-demo-')
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
        print('Passway demo portal: %s' % portal.url())
        print('test plug-in:        %s' % os.path.join(portal.plugins, 'libtunvo_plugin_testroot.so'))
        print('test root:           %s (emptied now; the package installs the stand-in service here)' % portal.root)
        print()
        print('Start a browser that loads NPAPI plug-ins with this folder on its plug-in path, for instance:')
        print()
        print('  MOZ_PLUGIN_PATH=%s qutebrowser --backend webkit -T -s content.plugins true %s'
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
