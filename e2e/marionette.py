"""A minimal client of Firefox's Marionette protocol (firefox --marionette): a TCP connection on loopback;
every message is its JSON text's length in decimal, a colon, then the text. Commands are
[0, id, name, parameters]; answers [1, id, error or null, result]. The browser speaks first, once."""
import json
import socket


class Marionette:
    def __init__(self, port, timeout=60):
        self.socket = socket.create_connection(('127.0.0.1', port), timeout=timeout)
        self.buffer = b''
        self.next = 0
        hello = self._receive()
        if hello.get('marionetteProtocol') != 3:
            raise RuntimeError('not a Marionette server (protocol 3): %r' % hello)

    def _receive(self):
        """The next message: its length in decimal, a colon, its JSON text."""
        while True:
            length, colon, rest = self.buffer.partition(b':')
            if colon and len(rest) >= int(length):
                break
            try:
                chunk = self.socket.recv(65536)
            except OSError as error:
                raise RuntimeError('the browser is gone (%s)' % error)
            if not chunk:
                raise RuntimeError('the browser closed the connection')
            self.buffer += chunk
        text, self.buffer = rest[:int(length)], rest[int(length):]
        return json.loads(text)

    def command(self, name, parameters=None):
        """The command's result (the "value" member when that is all there is); RuntimeError when the
        browser answers with an error or is gone."""
        self.next += 1
        text = json.dumps([0, self.next, name, parameters or {}]).encode()
        try:
            self.socket.sendall(b'%d:%s' % (len(text), text))
        except OSError as error:
            raise RuntimeError('%s: the browser is gone (%s)' % (name, error))
        while True:
            kind, ident, error, result = self._receive()
            if kind == 1 and ident == self.next:
                break
        if error:
            raise RuntimeError('%s: %s: %s' % (name, error.get('error'), error.get('message')))
        if isinstance(result, dict) and list(result) == ['value']:
            return result['value']
        return result

    def close(self):
        self.socket.close()
