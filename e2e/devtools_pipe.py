"""A minimal client of the DevTools protocol over --remote-debugging-pipe: the browser reads commands on
its descriptor 3 and writes answers and events on 4, one JSON text per message, each ended by a NUL byte."""
import fcntl
import json
import os
import subprocess
import threading


class DevToolsError(Exception):
    pass


class DevToolsPipe:
    """Starts `argv` (which must include --remote-debugging-pipe) in a session of its own, with its output
    to `log`, and sends commands to it; `command` waits for the answer. Events are ignored."""

    def __init__(self, argv, env, log):
        to_browser = os.pipe()
        from_browser = os.pipe()
        # Copies above the low numbers, so that placing them on 3 and 4 in the child cannot clobber one another.
        reads = fcntl.fcntl(to_browser[0], fcntl.F_DUPFD_CLOEXEC, 10)
        writes = fcntl.fcntl(from_browser[1], fcntl.F_DUPFD_CLOEXEC, 10)

        def place_descriptors():
            os.dup2(reads, 3)
            os.dup2(writes, 4)

        try:
            self.process = subprocess.Popen(argv, env=env, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                            pass_fds=(3, 4), preexec_fn=place_descriptors, start_new_session=True)
        finally:
            for fd in (reads, writes, to_browser[0], from_browser[1]):
                os.close(fd)
        self._out = to_browser[1]
        self._in = from_browser[0]
        self._next = 0
        self._answers = {}
        self._lock = threading.Condition()
        self._closed = False
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def _read(self):
        buffer = b''
        while True:
            chunk = os.read(self._in, 65536)
            if not chunk:
                break
            buffer += chunk
            *messages, buffer = buffer.split(b'\0')
            for text in messages:
                message = json.loads(text)
                if 'id' in message:
                    with self._lock:
                        self._answers[message['id']] = message
                        self._lock.notify_all()
        with self._lock:
            self._closed = True
            self._lock.notify_all()

    def command(self, method, params=None, session=None, timeout=30):
        """The command's result; DevToolsError when the browser answers with an error or is gone."""
        with self._lock:
            self._next += 1
            ident = self._next
        message = {'id': ident, 'method': method, 'params': params or {}}
        if session:
            message['sessionId'] = session
        try:
            os.write(self._out, json.dumps(message).encode() + b'\0')
        except OSError as error:
            raise DevToolsError('%s: the browser is gone (%s)' % (method, error))
        with self._lock:
            if not self._lock.wait_for(lambda: ident in self._answers or self._closed, timeout):
                raise DevToolsError('%s: no answer in %d s' % (method, timeout))
            if ident not in self._answers:
                raise DevToolsError('%s: the browser is gone' % method)
            answer = self._answers.pop(ident)
        if 'error' in answer:
            raise DevToolsError('%s: %s' % (method, answer['error'].get('message')))
        return answer.get('result', {})

    def close(self):
        """Asks the browser to close, then ends its process group if it lingers."""
        if self.process.poll() is None:
            try:
                self.command('Browser.close', timeout=10)
            except DevToolsError:
                pass
            try:
                self.process.wait(timeout=10)
            except subprocess.TimeoutExpired:
                os.killpg(self.process.pid, 15)
                self.process.wait()
        os.close(self._out)
        self._reader.join(timeout=5)
        os.close(self._in)
