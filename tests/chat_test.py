"""The guide's program, and terminal clients that talk through the sandbox, one of them at a
pseudo-terminal: CLIENT SANDBOX GUIDE"""
import codecs, fcntl, os, pty, re, socket, struct, subprocess, sys, termios, threading

CLIENT, SANDBOX, GUIDE = sys.argv[1:]
PATIENCE = 30


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
        self.process = subprocess.Popen(command, stdin=end, stdout=end, env=environment)
        os.close(end)
        threading.Thread(target=self.read, daemon=True).start()

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


def client(uin):
    return [CLIENT, '--url', url, '--uin', str(uin), '--patience', '3']


def both(pattern):
    for side in one, two:
        side.expect(pattern)


sandbox = Program('node', SANDBOX, '--port', '0')
try:
    url = sandbox.expect(r'http://[\d.:]+(?=\n)')
    subprocess.run([GUIDE, url], check=True, stdout=subprocess.DEVNULL, timeout=PATIENCE)
    one, two = Program(*client(1001)), Program(*client(1002), at_terminal=True)
    both('connected to')

    for who, line, *shown in [  # who types what, and what each side is then shown
        (one, '/nosuch\n/image', (one, 'there is no /nosuch'), (one, 'use it so: /image URL')),
        (one, 'too early', (one, 'open a conversation first')),
        (one, '/open 1002', (one, 'open: #1 user 1002')),
        (one, 'A "text" C:\\new größe 漢', (two, r'#1 user 1001 \| 1001: A "text" C:\\new größe 漢')),
        (two, '/open #1', (two, 'open: #1'), (one, r'seen by 1002: A "text"')),
        (one, 'wipe \x1b[2J', (two, r'1001: wipe \?\[2J')),
        (two, 'an answer', (one, '1002: an answer'), (two, 'seen by 1001: an answer')),
        (one, '/image http://h.example/a.png 9x7', (two, r'\[image\] http://h.+ \(9x7\)')),
        (two, '/file http://h.example/b.pdf 12', (one, r'\[file\] b.pdf, 12 bytes')),
        (two, '/typing', (one, '1002 is typing in #1')),
        (one, '/create The team', (one, 'open: #2 The team')),
        (one, '/invite', (one, 'others can now join')),
        (two, r'/join \w+', (two, 'open: #2 The team'), (one, 'now with 1002')),
        (one, 'to all', (two, '1001: to all')),
        (two, '/call video', (one, r'video call \d+ from 1002')),
        (one, '/answer', (one, 'with 1002: connected'), (two, 'with 1001: connected')),
        (two, '/hangup', (one, 'ended by 1002'), (one, r'call \d+ is over')),
        (one, '/secret 1002', (two, '1001 offers a secret chat')),
        (two, '/secret accept', (one, '1002 has accepted #3'), (two, 'open: #3')),
        (two, '/open 1001', (two, 'open: #1')),
        (two, '/history 2', (two, r'\[image\]'), (two, r'\[file\]'), (two, '/history more')),
    ]:
        who.type(one.expect(line) if '\\w' in line else line)
        for side, pattern in shown:
            side.expect(pattern)

    two.type('half a', end='')  # survives what arrives while it is typed
    two.expect('half a')
    one.type('/open 1002\ninterrupting')
    two.expect(r'1001: interrupting\n(.*\n)*.*> half a')
    two.type(' line')
    one.expect('1002: half a line')

    sandbox.process.kill()
    both('connection lost')
    sandbox = Program('node', SANDBOX, '--port', url.rsplit(':', 1)[1])
    both('connected again')

    for script, status in (('/open 1001\n/wait open: #1\nlast words', 0), ('/wait for ever', 1)):
        run = subprocess.run(client(1003), input=script.encode(), timeout=PATIENCE)
        assert run.returncode == status
    one.expect('1003: last words')
    for side, line in (one, '/quit\n'), (two, '\4'):
        side.type(line, end='')
        assert side.process.wait(PATIENCE) == 0
        assert 'KorivaSDK' not in side.raw and '\x1b[2J' not in side.raw, side.raw
finally:
    sandbox.process.kill()
