#!/usr/bin/python3
"""The demo portal's web server, on loopback: serves the portal page and the client package.

usage: portal_server.py PORT PORTAL_DIR PACKAGE
/ and /index.html give the portal page; /package gives PACKAGE as application/x-tar. Every request is
logged to standard error. Requests are served side by side: a browser may open a connection ahead and leave
it idle, which would hold up a server that serves one connection at a time."""
import http.server
import os
import sys


def main():
    port, portal, package = int(sys.argv[1]), sys.argv[2], sys.argv[3]

    class Handler(http.server.BaseHTTPRequestHandler):
        def do_GET(self):
            path = self.path.split('?')[0]
            if path in ('/', '/index.html'):
                body, mime = open(os.path.join(portal, 'index.html'), 'rb').read(), 'text/html'
            elif path == '/package':
                body, mime = open(package, 'rb').read(), 'application/x-tar'
            else:
                self.send_error(404)
                return
            self.send_response(200)
            self.send_header('Content-Type', mime)
            self.send_header('Content-Length', str(len(body)))
            self.end_headers()
            self.wfile.write(body)

    server = http.server.ThreadingHTTPServer(('127.0.0.1', port), Handler)
    server.daemon_threads = True
    server.serve_forever()


if __name__ == '__main__':
    main()
