#!/usr/bin/env python3
"""The package transfer through the Passway extension, in headless Chromium, against what the browser does
alone. In one run, with one package (64 MiB of random bytes served as application/x-tar from loopback):

  A  a page embeds the plug-in to install the package: the extension fetches it in the page's context and
     streams it to passway-host, which feeds the test plug-in (the plug-in hashes it, writes it, asks for one
     onTunvoDownloadProgress page call per 64000-byte write, then finds the signature bad, removes the file
     and calls VPNInstallationFailed). Timed in the page from the element's creation to onTunvoDownloadDone.
  B  the same page and extension with passway-frame-sink as the host: it only reads the frames, then calls
     benchTransferDone. Timed from the element's creation to that call.
  C  the page's own fetch of the package, its body read whole. Timed in the page.

plus the page-call round trip: the frame sink sends N calls of a page function one after the other, each
waiting for its result, and reports the time they took. Each browser (A's with passway-host, B's with the
frame sink) first makes one visit that is not counted (the portal's approval in the extension's popup, the
host's start); then the measured visits: its transfers through the extension, then C's (a 64 MiB body
read in the page just before slowed the next A by up to a fifth), then the page calls. Prints medians,
ratios and the processes' CPU time by kind (from /proc) for each variant.

usage: extension_transfer.py BUILD_DIR [SOURCE_DIR] [--mib N] [--repetitions N] [--calls N]
Exit 0 after the table, or with a message when Chromium or a program is missing; 1 when a visit fails."""
import argparse
import http.server
import json
import os
import shutil
import statistics
import sys
import tempfile
import threading
import time
import types

SOURCE = os.path.dirname(os.path.dirname(os.path.realpath(__file__)))
WAIT = 180  # seconds: the longest a visit may take

PAGE = r"""<!DOCTYPE html>
<html><head><meta charset="utf-8"><title>Passway transfer benchmark</title></head>
<body><div id="plugin"></div>
<script>
// What the page hears, with performance.now() stamps; the driver reads `bench` back.
var query = new URLSearchParams(location.search);
var bench = {mode: query.get('mode'), start: 0, finished: false, progress: [], pings: 0};
function now() { return performance.now(); }
function finish(name) { bench.end = now(); bench.endedBy = name; bench.finished = true; }

function onTunvoDownloadStart(size) { bench.downloadStart = now(); bench.size = size; }
function onTunvoDownloadProgress(received) { bench.progress.push([now(), received]); }
function onTunvoDownloadDone() { bench.downloadDone = now(); }
function onTunvoInstalling() { bench.installing = now(); }
function VPNInstallationFailed() { bench.failed = now(); finish('VPNInstallationFailed'); }
function VPNInstallationOK() { bench.ok = now(); finish('VPNInstallationOK'); }
function benchTransferDone(frames, bytes) { bench.frames = frames; bench.bytes = bytes; finish('benchTransferDone'); }
function benchPing(i) { bench.pings++; }
function benchCallsDone(calls, microseconds) { bench.calls = calls; bench.microseconds = microseconds; finish('benchCallsDone'); }

function embed(attributes) {
  var e = document.createElement('embed');
  e.setAttribute('type', 'application/x-orvane-sslvpn');
  e.setAttribute('width', '1');
  e.setAttribute('height', '1');
  for (var k in attributes) e.setAttribute(k, attributes[k]);
  bench.start = now();
  document.getElementById('plugin').appendChild(e);
}

async function plainFetch() {
  bench.start = now();
  var response = await fetch('/package', {credentials: 'include'});
  var reader = response.body.getReader(), bytes = 0;
  for (;;) {
    var piece = await reader.read();
    if (piece.done) break;
    bytes += piece.value.length;
  }
  bench.bytes = bytes;
  finish('fetch');
}

var root = location.protocol + '//' + location.host;
if (bench.mode == 'install')
  embed({_installvpn: '1', hostrooturl: root, tunvourl: '/package', tunvosize: query.get('size'),
         signature: 'bm90IGEgc2lnbmF0dXJl', _installmethod: 'sudo', _userpassword: 'bench'});
else if (bench.mode == 'sink')
  embed({hostrooturl: root, tunvourl: '/package'});
else if (bench.mode == 'calls')
  embed({benchcalls: query.get('calls')});
else if (bench.mode == 'fetch')
  plainFetch().catch(function (error) { bench.error = String(error); finish('error'); });
</script></body></html>
"""


class Failure(Exception):
    pass


# ---- the package's web server -------------------------------------------------------------------------
def serve(package):
    """A loopback server on a free port, in a thread: /bench.html (the page) and /package (the file)."""

    class Handler(http.server.BaseHTTPRequestHandler):
        def do_GET(self):
            path = self.path.split('?')[0]
            if path == '/bench.html':
                self.reply('text/html', len(PAGE.encode()))
                self.wfile.write(PAGE.encode())
            elif path == '/package':
                with open(package, 'rb') as f:
                    self.reply('application/x-tar', os.fstat(f.fileno()).st_size)
                    self.connection.sendfile(f)
            else:
                self.send_error(404)

        def reply(self, mime, length):
            self.send_response(200)
            self.send_header('Content-Type', mime)
            self.send_header('Content-Length', str(length))
            self.send_header('Cache-Control', 'no-store')
            self.end_headers()

        def log_message(self, *args):
            pass

    server = http.server.ThreadingHTTPServer(('127.0.0.1', 0), Handler)
    server.daemon_threads = True
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return server


# ---- the CPU time of the browser's processes ----------------------------------------------------------
def process_kind(argv, host):
    if argv and os.path.realpath(argv[0]) == host:
        return 'host'
    flags = ' '.join(argv)  # Chromium rewrites a child's command line into one string
    if '--type=renderer' in flags:
        return 'extension renderer' if '--extension-process' in flags else 'page renderer'
    if 'network.mojom.NetworkService' in flags:
        return 'network service'
    if '--type=' not in flags:
        return 'browser'
    return 'other'


def browser_pid(engine):
    return getattr(engine, 'browser_pid', None) or engine.browser.process.pid


def cpu_times(engine):
    """{pid: (kind, CPU seconds so far)} of the browser and every process descended from it (the zygote's
    children leave the browser's session, not its tree)."""
    tick = os.sysconf('SC_CLK_TCK')
    processes = {}
    for name in os.listdir('/proc'):
        if not name.isdigit():
            continue
        try:
            with open('/proc/%s/stat' % name) as f:
                fields = f.read().rsplit(')', 1)[1].split()
            with open('/proc/%s/cmdline' % name, 'rb') as f:
                argv = [arg.decode(errors='replace') for arg in f.read().split(b'\0') if arg]
        except OSError:
            continue
        processes[int(name)] = (int(fields[1]), argv, (int(fields[11]) + int(fields[12])) / tick)
    found, ours = {}, {browser_pid(engine)}
    for _ in range(8):  # the tree is a few levels deep
        ours |= {pid for pid, (parent, _, _) in processes.items() if parent in ours}
    for pid in ours & processes.keys():
        _, argv, seconds = processes[pid]
        found[pid] = (process_kind(argv, engine.host), seconds)
    return found


def cpu_spent(before, after):
    spent = {}
    for pid, (kind, seconds) in after.items():
        spent[kind] = spent.get(kind, 0.0) + seconds - before.get(pid, (kind, 0.0))[1]
    return spent


# ---- visits ---------------------------------------------------------------------------------------------
class Browser:
    """One headless Chromium with the extension (the e2e run's engine: the same extension folder, host
    manifest and browser flags), its host manifest naming `host`, and one tab."""

    def __init__(self, build, source, host, work, env):
        from engine_chromium import ChromiumEngine
        self.engine = ChromiumEngine(build, source, host)
        os.makedirs(work)
        # The engine keeps its profile in run.work and its log under run.build: both in our temporary folder.
        run = types.SimpleNamespace(work=work, build=work, env=env, plugins=os.path.join(build, 'plugin'))
        self.engine.start(run)
        self.approved = False

    def visit(self, url):
        """Opens url in the tab, approves its origin the first time, waits for the page's `bench` to finish
        and returns it with the CPU time the browser's processes spent meanwhile, then leaves the page."""
        from engine_chromium import poll
        engine, tab = self.engine, self.engine.tab
        before = cpu_times(engine)
        engine.go(tab, url)
        if not self.approved:
            engine.loaded(tab)
            origin = '/'.join(url.split('/')[:3])
            engine.approve(origin)
            self.approved = True
        if not poll(lambda: engine.holds(tab, 'bench.finished'), seconds=WAIT, step=0.05):
            state = engine.evaluate(tab, 'JSON.stringify(bench, (k, v) => k == "progress" ? v.length : v)')
            raise Failure('%s did not finish within %d s; the page holds %s' % (url, WAIT, state))
        result = engine.evaluate(tab, 'bench')
        result['cpu'] = cpu_spent(before, cpu_times(engine))
        engine.go(tab, 'about:blank')
        if result.get('error'):
            raise Failure('%s: %s' % (url, result['error']))
        return result

    def close(self):
        self.engine.close()


def milliseconds(result, until):
    return result[until] - result['start']


def median(values):
    return statistics.median(values) if values else float('nan')


def median_cpu(results):
    kinds = sorted({kind for r in results for kind in r['cpu']})
    return {kind: median([r['cpu'].get(kind, 0.0) for r in results]) for kind in kinds}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('build')
    parser.add_argument('source', nargs='?', default=SOURCE)
    parser.add_argument('--mib', type=int, default=64)
    parser.add_argument('--repetitions', type=int, default=5)
    parser.add_argument('--calls', type=int, default=200, help='page calls per round-trip measurement')
    args = parser.parse_args()
    build, source = os.path.realpath(args.build), os.path.realpath(args.source)
    sys.dont_write_bytecode = True  # importing the e2e modules leaves no __pycache__ in the source tree
    sys.path.insert(0, os.path.join(source, 'e2e'))
    from engine_chromium import ChromiumEngine

    host = os.path.join(build, 'host', 'passway-host')
    sink = os.path.join(build, 'bench', 'passway-frame-sink')
    plugin = os.path.join(build, 'plugin', 'libtunvo_plugin_testroot.so')
    try:
        engine = ChromiumEngine(build, source, host)
        missing = engine.missing() or ChromiumEngine(build, source, sink).missing()  # Chromium, a host, the extension
    except OSError as error:
        print('extension transfer benchmark failed: %s' % error, file=sys.stderr)
        return 1
    if not missing and not os.path.exists(plugin):
        missing = 'the test plug-in is not built (%s)' % plugin
    if missing:
        print('skipped: %s' % missing)
        return 0

    began = time.monotonic()
    size = args.mib << 20
    work = tempfile.mkdtemp(prefix='passway-bench-transfer-')
    browsers, server = [], None
    try:
        package = os.path.join(work, 'package')
        with open(package, 'wb') as f:
            for _ in range(args.mib):
                f.write(os.urandom(1 << 20))
        server = serve(package)
        page = 'http://127.0.0.1:%d/bench.html?' % server.server_address[1]
        home = os.path.join(work, 'home')  # the plug-in logs under its home folder
        os.makedirs(home)
        env = dict(os.environ, HOME=home, XDG_RUNTIME_DIR=work)
        urls = {'A': page + 'mode=install&size=%d' % size, 'B': page + 'mode=sink',
                'C': page + 'mode=fetch', 'calls': page + 'mode=calls&calls=%d' % args.calls}
        results = {'A': [], 'B': [], 'C in A': [], 'C in B': [], 'calls': []}

        print('package: %d MiB; %d repetitions (after one visit not counted in each browser); extension: %s'
              % (args.mib, args.repetitions, engine.extension))
        # A's browser: passway-host with the test plug-in.
        real = Browser(build, source, host, os.path.join(work, 'host'), env)
        browsers.append(real)
        real.visit(urls['A'])
        results['A'] = [real.visit(urls['A']) for _ in range(args.repetitions)]
        results['C in A'] = [real.visit(urls['C']) for _ in range(args.repetitions)]
        real.close()
        browsers.remove(real)
        # B's browser: the frame sink.
        bare = Browser(build, source, sink, os.path.join(work, 'sink'), env)
        browsers.append(bare)
        bare.visit(urls['B'])
        results['B'] = [bare.visit(urls['B']) for _ in range(args.repetitions)]
        results['C in B'] = [bare.visit(urls['C']) for _ in range(args.repetitions)]
        results['calls'] = [bare.visit(urls['calls']) for _ in range(args.repetitions)]
        bare.close()
        browsers.remove(bare)

        for r in results['A']:
            if r.get('endedBy') != 'VPNInstallationFailed' or 'downloadDone' not in r:
                raise Failure('A: the page heard %s, not onTunvoDownloadDone then VPNInstallationFailed' % r.get('endedBy'))
            if not r['progress'] or r['progress'][-1][1] != size:
                raise Failure('A: the last progress call reported %s of %d bytes' % (r['progress'][-1:], size))
        for r in results['B']:
            if r.get('endedBy') != 'benchTransferDone' or not r.get('frames'):
                raise Failure('B: the sink read no frames (%s)' % r)
        for r in results['C in A'] + results['C in B']:
            if r.get('bytes') != size:
                raise Failure('C: the page read %s of %d bytes' % (r.get('bytes'), size))

        a = median([milliseconds(r, 'downloadDone') for r in results['A']])
        a_failed = median([milliseconds(r, 'failed') for r in results['A']])
        a_last_progress = median([r['progress'][-1][0] - r['start'] for r in results['A']])
        a_first_progress = median([r['progress'][0][0] - r['start'] for r in results['A']])
        b = median([milliseconds(r, 'end') for r in results['B']])
        c_a = median([milliseconds(r, 'end') for r in results['C in A']])
        c_b = median([milliseconds(r, 'end') for r in results['C in B']])
        trip = median([r['microseconds'] / r['calls'] / 1000 for r in results['calls']])
        progress_calls = len(results['A'][0]['progress'])
        frames = results['B'][0]['frames']

        print()
        print('%d MiB package in headless Chromium, median of %d (ms from the element\'s creation, C from its fetch)'
              % (args.mib, args.repetitions))
        rows = [
            ('A  extension + passway-host + plug-in, to onTunvoDownloadDone', a),
            ('     ... to VPNInstallationFailed', a_failed),
            ('B  extension + frame sink (frames only), to benchTransferDone', b),
            ('C  the page\'s own fetch, body read whole (A\'s browser)', c_a),
            ('C  the page\'s own fetch, body read whole (B\'s browser)', c_b),
        ]
        for label, value in rows:
            print('  %-66s %9.0f ms  %7.1f MiB/s' % (label, value, args.mib / value * 1000))
        print('  %-66s %9.2f x   (aim >= 0.8)' % ('speed of A / speed of B', b / a))
        print('  %-66s %9.2f x' % ('speed of A / speed of C', c_a / a))
        print('  %-66s %9.2f x' % ('speed of B / speed of C', c_b / b))
        print('  %-66s %9.1f ms' % ('A per MiB', a / args.mib))
        print('  %-66s %9.2f ms' % ('page-call round trip (mean of %d in a row)' % args.calls, trip))
        print()
        print('A in detail (medians): the first progress call reached the page at %.0f ms, the last (%d bytes) at %.0f ms;'
              % (a_first_progress, size, a_last_progress))
        print('  the plug-in asked %d onTunvoDownloadProgress calls (one per 64000-byte write; %d data frames in B),'
              % (progress_calls, frames))
        print('  %.0f ms at the idle round trip if made one after the other (they overlap the transfer)'
              % (progress_calls * trip))
        print()
        print('CPU seconds by process, medians (2 cores):')
        cpu = {'A': median_cpu(results['A']), 'B': median_cpu(results['B']), 'C': median_cpu(results['C in A'])}
        kinds = sorted({kind for spent in cpu.values() for kind in spent})
        print('  %-20s %8s %8s %8s' % ('', 'A', 'B', 'C'))
        for kind in kinds:
            print('  %-20s %8.2f %8.2f %8.2f' % (kind, cpu['A'].get(kind, 0), cpu['B'].get(kind, 0), cpu['C'].get(kind, 0)))
        print('  %-20s %8.2f %8.2f %8.2f' % ('total', *(sum(cpu[v].values()) for v in 'ABC')))
        print()
        print('benchmark run time: %.1f s' % (time.monotonic() - began))
        return 0
    except Exception as error:
        for browser in browsers:
            try:
                print(browser.engine.log_tail(), file=sys.stderr)
            except OSError:
                pass
        print('extension transfer benchmark failed: %s' % error, file=sys.stderr)
        return 1
    finally:
        for browser in browsers:
            browser.close()
        if server is not None:
            server.shutdown()
            server.server_close()
        shutil.rmtree(work, ignore_errors=True)


if __name__ == '__main__':
    sys.exit(main())
