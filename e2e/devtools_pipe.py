"""A minimal client of the DevTools protocol over --remote-debugging-pipe: the browser reads commands on
its descriptor 3 and writes answers and events on 4, one JSON text per message, each ended by a NUL byte."""
import contextlib
import fcntl
import json
import os
import select
import subprocess
import time


class DevToolsPipe:
    """Starts `argv` (which must include --remote-debugging-pipe) in a session of its own, with its output
    to `log`, and sends commands to it; `command` waits for the answer. Events are read and dropped."""

    def __init__(self, argv, env, log):
        to_browser, from_browser = os.pipe(), os.pipe()
        # Copies above the low numbers, so that placing them on 3 and 4 in the child cannot clobber one another.
        reads = fcntl.fcntl(to_browser[0], fcntl.F_DUPFD_CLOEXEC, 10)
        writes = fcntl.fcntl(from_browser[1], fcntl.F_DUPFD_CLOEXEC, 10)
        try:
            self.process = subprocess.Popen(argv, env=env, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                            pass_fds=(3, 4), preexec_fn=lambda: (os.dup2(reads, 3), os.dup2(writes, 4)),
                                            start_new_session=True)
        finally:
            for fd in (reads, writes, to_browser[0], from_browser[1]):
                os.close(fd)
        self._out, self._in = to_browser[1], from_browser[0]
        self._next, self._buffer = 0, b''

    def _answer(self, ident, method, timeout):
        """The browser's answer to command `ident`, read within `timeout` seconds."""
        deadline = time.monotonic() + timeout
        while True:
            *messages, self._buffer = self._buffer.split(b'\0')
            for i, text in enumerate(messages):
                message = json.loads(text)
                if message.get('id') == ident:  # what came after it waits for the next command
                    self._buffer = b'\0'.join(messages[i + 1:] + [self._buffer])
                    return message
            left = deadline - time.monotonic()
            if left <= 0 or not select.select([self._in], [], [], left)[0]:
                raise RuntimeError('%s: no answer in %d s' % (method, timeout))
            chunk = os.read(self._in, 1 << 20)
            if not chunk:
                raise RuntimeError('%s: the browser is gone' % method)
            self._buffer += chunk

    def command(self, method, params=None, session=None, timeout=30):
        """The command's result; RuntimeError when the browser answers with an error or is gone."""
        self._next += 1
        message = {'id': self._next, 'method': method, 'params': params or {}}
        if session:
            message['sessionId'] = session
        try:
            os.write(self._out, json.dumps(message).encode() + b'\0')
        except OSError as error:
            raise RuntimeError('%s: the browser is gone (%s)' % (method, error))
        answer = self._answer(self._next, method, timeout)
        if 'error' in answer:
            raise RuntimeError('%s: %s' % (method, answer['error'].get('message')))
        return answer.get('result', {})

    def close(self):
        """Asks the browser to close, then ends its process group if it lingers."""
        if self.process.poll() is None:
            with contextlib.suppress(RuntimeError):
                self.command('Browser.close', timeout=10)
            try:
                self.process.wait(timeout=10)
            except subprocess.TimeoutExpired:
                os.killpg(self.process.pid, 15)
                self.process.wait()
        os.close(self._out)
        os.close(self._in)
