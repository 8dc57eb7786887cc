import atexit, codecs, fcntl, os, pty, re, signal, socket, struct, subprocess, termios, threading

PATIENCE = 60
signal.signal(signal.SIGTERM, lambda *_: exit(1))


class Program:
    # What a running program shows can be expected once, in any order.

    def __init__(self, *command, at_terminal=False):
        self.raw = self.output = ''
        self.changed = threading.Condition()
        pair = pty.openpty if at_terminal else lambda: (it.detach() for it in socket.socketpair())
        self.fd, end = pair()
        if at_terminal:
            fcntl.ioctl(end, termios.TIOCSWINSZ, struct.pack('HHHH', 24, 60, 0, 0))
        environment = {**os.environ, 'TERM': 'xterm', 'LC_ALL': 'C.UTF-8'}
        self.process = subprocess.Popen(
            command, stdin=end, stdout=end, env=environment, start_new_session=True
        )
        os.close(end)
        threading.Thread(target=self.read, daemon=True).start()
        atexit.register(self.kill)

    def kill(self):  # and all that it has started
        if self.process.returncode is None:
            os.killpg(self.process.pid, signal.SIGKILL)

    def read(self):
        decoder = codecs.getincrementaldecoder('utf-8')()
        try:
            while data := os.read(self.fd, 65536):
                with self.changed:
                    self.raw += (text := decoder.decode(data))
                    self.output = re.sub(r'\x1b\[[0-9;?]*[A-Za-z]|\r', '', self.output + text)
                    self.changed.notify_all()
        except OSError:  # how a pseudo-terminal ends
            pass

    def type(self, text, end='\n'):
        os.write(self.fd, (text + end).encode())

    def expect(self, pattern):
        with self.changed:
            shown = self.changed.wait_for(lambda: re.search(pattern, self.output), PATIENCE)
            assert shown, f'{pattern!r} did not come:\n{self.output}'
            self.output = self.output[: shown.start()] + self.output[shown.end() :]
            return shown[0]


def sandbox(script, port='0'):
    program = Program('node', script, '--port', port)
    return program, program.expect(r'http://[\d.:]+(?=\n)')
