#!/usr/bin/env python3
"""What the Passway extension costs an ordinary page, one that never embeds the plug-in, in headless Chromium:
the same busy page timed in a browser with the extension and in one without it, in the same run.

The page builds a large document in rounds, one task each: it adds 500 items (a <div> with a <span>, an
<img> and a link), restyles every third item of the whole list, changes the class of every fifth and removes
the 100 oldest; 20 rounds (10,000 items added, 40,000 elements in all). Timed in the page from the first
round to a task after the last one, so that every mutation observer's work is in. Each browser first makes
one visit that is not counted, then the measured ones, alternating browsers. Prints the medians and the
ratio (with / without; 1.00 means no cost).

usage: extension_page_cost.py BUILD_DIR [SOURCE_DIR] [--repetitions N] [--rounds N]
Exit 0 after the table, or with a message when Chromium or the extension is missing; 1 when a visit fails."""
import argparse
import http.server
import os
import shutil
import statistics
import sys
import tempfile
import threading
import time

SOURCE = os.path.dirname(os.path.dirname(os.path.realpath(__file__)))
CHROMIUM = '/usr/lib/chromium/chromium'

PAGE = r"""<!DOCTYPE html>
<html><head><meta charset="utf-8"><title>An ordinary busy page</title>
<style>.item { padding: 1px; } .odd { color: #345; } img { width: 4px; height: 4px; }</style></head>
<body><div id="list"></div>
<script>
var rounds = Number(new URLSearchParams(location.search).get('rounds')) || 20;
var bench = {finished: false};
function round(n) {
  var list = document.getElementById('list');
  for (var i = 0; i < 500; ++i) {
    var item = document.createElement('div');
    item.className = 'item';
    item.innerHTML = '<span>item ' + n + '.' + i + '</span><img alt=""><a href="#' + i + '">link</a>';
    list.appendChild(item);
  }
  var items = list.children;
  for (var j = 0; j < items.length; j += 3) items[j].style.color = n % 2 ? '#123' : '#321';
  for (var k = 0; k < items.length; k += 5) items[k].classList.toggle('odd');
  for (var r = 0; r < 100; ++r) list.removeChild(list.firstElementChild);
}
function step(n) {
  if (n == rounds) {
    setTimeout(function () { bench.ms = performance.now() - bench.start; bench.finished = true; }, 0);
    return;
  }
  round(n);
  setTimeout(step, 0, n + 1);
}
window.addEventListener('load', function () { bench.start = performance.now(); step(0); });
</script></body></html>
"""


def serve():
    class Handler(http.server.BaseHTTPRequestHandler):
        def do_GET(self):
            body = PAGE.encode()
            self.send_response(200)
            self.send_header('Content-Type', 'text/html')
            self.send_header('Content-Length', str(len(body)))
            self.end_headers()
            self.wfile.write(body)

        def log_message(self, *args):
            pass

    server = http.server.ThreadingHTTPServer(('127.0.0.1', 0), Handler)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return server


class Browser:
    """One headless Chromium (the flags of the e2e run), with or without the extension, and one tab."""

    def __init__(self, work, extension):
        from devtools_pipe import DevToolsPipe
        profile = os.path.join(work, 'profile')
        argv = [CHROMIUM, '--headless=new', '--no-sandbox', '--user-data-dir=' + profile, '--no-first-run',
                '--disable-gpu', '--disable-dev-shm-usage', '--disable-background-networking',
                '--disable-component-update', '--disable-sync', '--remote-debugging-pipe', '--window-size=800,500']
        if extension:
            argv.append('--load-extension=' + extension)
        self.log = open(os.path.join(work, 'browser.log'), 'w')
        self.browser = DevToolsPipe(argv + ['about:blank'], dict(os.environ, HOME=work), self.log)
        target = self.browser.command('Target.createTarget', {'url': 'about:blank'})['targetId']
        self.session = self.browser.command('Target.attachToTarget', {'targetId': target, 'flatten': True})['sessionId']

    def evaluate(self, expression):
        result = self.browser.command('Runtime.evaluate', {'expression': expression, 'returnByValue': True},
                                      session=self.session)
        return None if 'exceptionDetails' in result else result['result'].get('value')

    def visit(self, url, wait=120):
        """The page's time in ms."""
        self.browser.command('Page.navigate', {'url': url}, session=self.session)
        deadline = time.monotonic() + wait
        while time.monotonic() < deadline:
            if self.evaluate('location.href == %r && bench.finished' % url):
                return self.evaluate('bench.ms')
            time.sleep(0.05)
        raise RuntimeError('%s did not finish within %d s' % (url, wait))

    def close(self):
        self.browser.close()
        self.log.close()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('build')
    parser.add_argument('source', nargs='?', default=SOURCE)
    parser.add_argument('--repetitions', type=int, default=9)
    parser.add_argument('--rounds', type=int, default=20)
    args = parser.parse_args()
    sys.dont_write_bytecode = True  # importing the e2e modules leaves no __pycache__ in the source tree
    sys.path.insert(0, os.path.join(os.path.realpath(args.source), 'e2e'))
    extension = os.path.join(os.path.realpath(args.build), 'extension', 'chromium')
    if not os.access(CHROMIUM, os.X_OK):
        print('skipped: Chromium is missing (%s)' % CHROMIUM)
        return 0
    if not os.path.exists(os.path.join(extension, 'manifest.json')):
        print('skipped: the extension is not built (%s)' % extension)
        return 0

    work = tempfile.mkdtemp(prefix='passway-bench-page-')
    server, browsers = serve(), {}
    try:
        for name, folder in (('without', None), ('with', extension)):
            os.makedirs(os.path.join(work, name))
            browsers[name] = Browser(os.path.join(work, name), folder)
        page = 'http://127.0.0.1:%d/ordinary.html?rounds=%d' % (server.server_address[1], args.rounds)
        times = {name: [] for name in browsers}
        for name, browser in browsers.items():
            browser.visit(page + '&warm')  # not counted
        for repetition in range(args.repetitions):
            for name, browser in browsers.items():
                times[name].append(browser.visit(page + '&r=%d' % repetition))
    except RuntimeError as error:
        print('extension page cost benchmark failed: %s' % error, file=sys.stderr)
        return 1
    finally:
        for browser in browsers.values():
            browser.close()
        server.shutdown()
        shutil.rmtree(work, ignore_errors=True)

    without, with_ = statistics.median(times['without']), statistics.median(times['with'])
    print('an ordinary page, %d rounds of 500 items added (%d repetitions, medians):' % (args.rounds, args.repetitions))
    print('  %-28s %9.1f ms' % ('without the extension', without))
    print('  %-28s %9.1f ms' % ('with the extension', with_))
    print('  %-28s %9.2fx' % ('ratio (with / without)', with_ / without))
    return 0


if __name__ == '__main__':
    sys.exit(main())
