// Opens the sandbox's page in headless Chromium, pushes every event to a client by clicks, and sees
// the client receive a message whose text was typed into the page. From the top folder:
// node tests/page_test.mjs CLIENT
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { mkdtempSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";

const events = `message update_message delete_message user_status delete_group group update_group
  error start_call answer_call stop_call ice_sdp ice_candidate event delete_conversation
  start_secret_chat accept_secret_chat delete_secret_chat block_user unblock_user`.split(/\s+/);
const folder = mkdtempSync(`${tmpdir()}/koriva-page-`);
// The driver adds options against first-run pages and background traffic.
const args = `--headless --no-sandbox --disable-gpu --disable-quic --disable-dev-shm-usage
  --disable-component-update --user-data-dir=${folder}/profile`.split(/\s+/);

const children = [];
process.on("exit", (status) => {
  for (const { pid, spawnargs, printed } of children) {
    if (status !== 0) console.error(`--- ${spawnargs.join(" ")}\n${printed}`);
    try {
      process.kill(-pid, "SIGKILL"); // the group, as the driver has started the browser
    } catch {} // has ended
  }
  rmSync(folder, { recursive: true, force: true, maxRetries: 50 });
});
for (const signal of ["SIGHUP", "SIGINT", "SIGTERM"]) process.on(signal, () => process.exit(1));

const env = { ...process.env, HOME: folder, TMPDIR: folder };
function start(program, ...options) {
  const child = spawn(program, options, { env, detached: true, stdio: ["pipe", "pipe", 2] });
  child.on("error", () => assert.fail(`cannot run ${program}: install it by script/bootstrap`));
  child.on("exit", (status) => assert.equal(status, 0, `${program} has failed`));
  if (child.pid) children.push(Object.assign(child, { printed: "" }));
  child.stdout.setEncoding("utf8").on("data", (text) => (child.printed += text));
  return child;
}

let awaited = "";
setTimeout(() => assert.fail(`waited in vain for ${awaited}`), 150_000);
async function until(what, condition) {
  awaited = what;
  const value = await condition();
  if (!value) await new Promise((done) => setTimeout(done, 50));
  return value || until(what, condition);
}
const shown = (child, pattern) => until(pattern, () => pattern.exec(child.printed)?.[0]);

const url = await shown(start("node", "sandbox/server.mjs", "--port", "0"), /http:\S+/);
const chat = start(process.argv[2], "--url", url, "--uin", "1001");
const port = await shown(start("chromedriver", "--port=0"), /(?<=successfully on port )\d+/);

let session = `http://127.0.0.1:${port}/session`;
async function post(path, command) {
  const answer = await fetch(session + path, { method: "POST", body: JSON.stringify(command) });
  const { value } = await answer.json();
  assert(answer.ok, `the browser, which script/bootstrap installs: ${value?.message}`);
  return value;
}
const look = (script) => post("/execute/sync", { script: `return ${script}`, args: [] });
const act = async (element, action, command = {}) =>
  post(`/element/${Object.values(await look(element))[0]}/${action}`, command);

const capabilities = { alwaysMatch: { "goog:chromeOptions": { args } } };
session += `/${(await post("", { capabilities })).sessionId}`;
await post("/url", { url });
const sample = await until("1001", () => look("/1001/.test(people.innerText) && items.value"));
assert.deepEqual(await look("[...$('event')].map(({ text }) => text)"), events);

const text = `typed ${Math.random()}`;
await act("$('items')", "clear");
await act("$('items')", "value", { text: sample.replace("Hello from the operator", text) });
for (const [index, event] of events.entries()) {
  await act("$('push')", "click");
  const outcome = `Pushed ${event} to 1001`;
  await until(outcome, () => look(`$('outcome').innerText === '${outcome}'`));
  await act(`$('event')[${(index + 1) % events.length}]`, "click");
}
await shown(chat, new RegExp(text));
chat.stdin.end();
await until("the client's end", () => chat.exitCode === 0 && look("!nobody.hidden"));
process.exit(0);
