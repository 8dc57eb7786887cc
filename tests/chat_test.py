"""The guide's program, and terminal clients that talk through the sandbox, one of them at a
pseudo-terminal: CLIENT SANDBOX GUIDE TABLE"""
import re, subprocess, sys
from support.program import PATIENCE, Program, sandbox

CLIENT, SANDBOX, GUIDE, TABLE = sys.argv[1:]


def client(uin, patience=PATIENCE):
    return [CLIENT, '--url', url, '--uin', str(uin), '--patience', str(patience)]


def rows():
    for number, line in enumerate(open(TABLE, encoding='utf-8'), 1):
        if line.strip() and not line.startswith('#'):
            row = re.fullmatch(r'  (one|two) (\S.*) => ((?:one|two) \S.*)\n', line)
            assert row, f'{TABLE}:{number}: this is no row'
            yield row.groups()


def both(pattern):
    for side in one, two:
        side.expect(pattern)


server, url = sandbox(SANDBOX)
subprocess.run([GUIDE, url], check=True, stdout=subprocess.DEVNULL, timeout=PATIENCE)
one, two = Program(*client(1001)), Program(*client(1002), at_terminal=True)
sides = {'one': one, 'two': two}
both('connected to')

for who, line, shown in rows():
    # What is typed by a pattern is what the first was shown.
    sides[who].type(one.expect(line) if '\\w' in line else line)
    for who, pattern in (each.split(' ', 1) for each in shown.split(' + ')):
        sides[who].expect(pattern)
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
sandbox(SANDBOX, url.rsplit(':', 1)[1])
both('connected again')

for script, patience, status in (
    ('/open 1001\n/wait open: #1\nlast words', PATIENCE, 0),
    ('/wait for ever', 0, 1),
):
    run = subprocess.run(client(1003, patience), input=script.encode(), timeout=2 * PATIENCE)
    assert run.returncode == status
one.expect('1003: last words')
for side, line in (one, '/quit\n'), (two, '\4'):
    side.type(line, end='')
    assert side.process.wait(PATIENCE) == 0
    assert 'KorivaSDK' not in side.raw and '\x1b[2J' not in side.raw, side.raw
