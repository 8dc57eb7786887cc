"""Opens the sandbox's page in headless Chromium, pushes every event to a client by clicks, and sees
the client receive a message whose text was typed into the page: CLIENT SANDBOX"""
import http.client, json, os, random, sys, tempfile, time
from support.program import PATIENCE, Program, sandbox

CLIENT, SANDBOX = sys.argv[1:]
EVENTS = '''message update_message delete_message user_status delete_group group update_group error
  start_call answer_call stop_call ice_sdp ice_candidate event delete_conversation
  start_secret_chat accept_secret_chat delete_secret_chat block_user unblock_user'''.split()
# The driver adds options against first-run pages and background traffic.
ARGS = '''--headless --no-sandbox --disable-gpu --disable-quic --disable-dev-shm-usage
  --disable-component-update'''.split()

folder = tempfile.TemporaryDirectory(prefix='koriva-page-', ignore_cleanup_errors=True)
os.environ.update(HOME=folder.name, TMPDIR=folder.name)
_, url = sandbox(SANDBOX)
chat = Program(CLIENT, '--url', url, '--uin', '1001')
driver = Program('chromedriver', '--port=0').expect(r'(?<=successfully on port )\d+')
session = '/session'


def post(path, **command):
    connection = http.client.HTTPConnection('127.0.0.1', driver, timeout=PATIENCE)
    connection.request('POST', session + path, json.dumps(command))
    answer = connection.getresponse()
    value = json.load(answer)['value']
    assert answer.status == 200, value
    return value


def look(script):
    return post('/execute/sync', script='return ' + script, args=[])


def until(script):
    end = time.monotonic() + PATIENCE
    while not (value := look(script)):
        assert time.monotonic() < end, f'waited in vain for {script}'
        time.sleep(0.05)
    return value


def act(element, action, **command):
    (name,) = look(element).values()
    post(f'/element/{name}/{action}', **command)


capabilities = {'alwaysMatch': {'goog:chromeOptions': {'args': ARGS}}}
session += '/' + post('', capabilities=capabilities)['sessionId']
post('/url', url=url)
sample = until('/1001/.test(people.innerText) && items.value')
assert look("[...$('event')].map(({ text }) => text)") == EVENTS

text = f'typed {random.random()}'
act("$('items')", 'clear')
act("$('items')", 'value', text=sample.replace('Hello from the operator', text))
for index, event in enumerate(EVENTS, 1):
    act("$('push')", 'click')
    until(f"$('outcome').innerText === 'Pushed {event} to 1001'")
    act(f"$('event')[{index % len(EVENTS)}]", 'click')
chat.expect(text)
chat.type('/quit')
assert chat.process.wait(PATIENCE) == 0
until('!nobody.hidden')
