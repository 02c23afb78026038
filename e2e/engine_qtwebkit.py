"""The QtWebKit engine of the end-to-end run: the plug-in loaded by the browser itself (NPAPI), one scripted
browser process (browser_host.py) per visit, under the X display that xvfb-run provides."""
import json
import os
import subprocess

from demo_setup import WAIT

QT_PYTHON = '/usr/bin/python3'  # the Qt bindings live with Debian's interpreter


class QtWebKitEngine:
    name = 'qtwebkit'
    bridge = False

    # The plug-in runs in the browser: no host. The browser always has a window (under Xvfb without a display).
    def __init__(self, build, source, host=None, window=True):
        self.driver = os.path.join(source, 'e2e', 'browser_host.py')

    def missing(self):
        if not os.path.exists(QT_PYTHON) or subprocess.run(
                [QT_PYTHON, '-c', 'from PyQt5 import QtWebKitWidgets'], capture_output=True).returncode != 0:
            return 'QtWebKit for Python (python3-pyqt5.qtwebkit) is missing'
        return None

    def start(self, run):
        self.env = dict(run.env, QTWEBKIT_PLUGIN_PATH=run.plugins)

    def visit(self, url, until, screenshot=None, ready=None, fresh=True):
        """Opens url, waits until the JavaScript expression `until` holds, reads the page, leaves it. (The
        browser makes plug-in instances as it lays the page out: `ready` needs no wait of its own; every
        visit is a browser process of its own: `fresh` always.)"""
        args = [QT_PYTHON, self.driver, url, until, str(WAIT)] + ([screenshot] if screenshot else [])
        out = subprocess.run(args, env=self.env, capture_output=True, text=True, timeout=WAIT + 60).stdout
        for line in out.splitlines():
            if line.startswith('{"page": '):  # the driver's; anything else is the browser's
                result = json.loads(line)
                return [str(item) for item in result['page']], result['status']
        return [], None

    def log_tail(self):
        return ''

    def close(self):
        pass
