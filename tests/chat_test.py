"""The guide's program, and terminal clients that talk through the sandbox, one of them at a
pseudo-terminal: CLIENT SANDBOX GUIDE TABLE"""
import re, socket, subprocess, sys
from support.program import PATIENCE, Program, sandbox

CLIENT, SANDBOX, GUIDE, TABLE = sys.argv[1:]


def client(uin, patience=PATIENCE):
    return [CLIENT, '--url', url, '--uin', str(uin), '--patience', str(patience)]


def rows():
    for number, row in enumerate(open(TABLE, encoding='utf-8'), 1):
        if row.strip() and not row.startswith('#'):
            typed, _, shown = row.rstrip('\n').partition(' => ')
            parts = [typed.removeprefix('  '), *shown.split(' + ')]
            is_row = typed.startswith('  ') and all(re.match(r'(one|two) \S', it) for it in parts)
            assert is_row, f'{TABLE}:{number}: this is no row'
            yield f'{TABLE}:{number}', [part.split(' ', 1) for part in parts]


def both(pattern):
    for side in one, two:
        side.expect(pattern)


# Bound as servers bind theirs, so that nobody else is given the port while there is no server.
reserved = socket.socket()
reserved.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
reserved.bind(('127.0.0.1', 0))
port = str(reserved.getsockname()[1])

server, url = sandbox(SANDBOX, port)
subprocess.run([GUIDE, url], check=True, stdout=subprocess.DEVNULL, timeout=PATIENCE)
one, two = Program(*client(1001)), Program(*client(1002), at_terminal=True)
sides = {'one': one, 'two': two}
both('connected to')

for place, ((who, line), *shown) in rows():
    try:
        # What is typed by a pattern is what the first was shown.
        sides[who].type(one.expect(line) if '\\w' in line else line)
        for side, pattern in shown:
            sides[side].expect(pattern)
    except AssertionError as error:
        sys.exit(f'{place}: {error}')
one.type('wipe \x1b[2J')
two.expect(r'1001: wipe \?\[2J')

two.type('half a', end='')  # survives what arrives while it is typed
two.expect('half a')
one.type('/open 1002\ninterrupting')
two.expect(r'1001: interrupting\n(.*\n)*.*> half a')
two.type(' line')
one.expect('1002: half a line')

server.kill()
both('connection lost')
sandbox(SANDBOX, port)
both('connected again')

for script, patience, options, status in (
    ('/open 1001\n/wait open: #1\nlast words', PATIENCE, ['--verbose'], 0),
    ('/wait for ever', 0, [], 1),
):
    command = [*client(1003, patience), *options]
    run = subprocess.run(
        command, input=script, stdout=subprocess.PIPE, text=True, timeout=2 * PATIENCE
    )
    assert run.returncode == status
    assert ('KorivaSDK - socket connected\n' in run.stdout) == bool(options), run.stdout
one.expect('1003: last words')
for side, line in (one, '/quit\n'), (two, '\4'):
    side.type(line, end='')
    assert side.process.wait(PATIENCE) == 0
    assert 'KorivaSDK' not in side.raw and '\x1b[2J' not in side.raw, side.raw
