#!/usr/bin/env node
// A scriptable server. Commands come as JSON lines on standard input, each is answered by one JSON
// line on standard output; the first line is the port. It ends with its standard input.
//
//   {"do":"answer","event":"x","items":[…]}   answers to "x" from now on
//   {"do":"hold"}, {"do":"held"}, {"do":"release"}   keeps answers back, counts them, sends them
//   {"do":"push","items":["event",…]}         to every client
//   {"do":"kick"}                             closes every connection
//   {"do":"refuse","on":true}                 refuses the namespace
//   {"do":"reports","of":"x"}                 what has happened, of the kind x, in order
//   {"do":"forget"}                           what has happened
//
// In items, {"$binary":"text"} stands for bytes and {"$payload":"key"} for what the request holds.
import { createServer } from "node:http";
import { createRequire } from "node:module";
import { createInterface } from "node:readline";

const require = createRequire(new URL("../sandbox/package.json", import.meta.url));
const { Server } = require("socket.io");

const options = JSON.parse(process.argv[2]);
const say = (value) => process.stdout.write(`${JSON.stringify(value ?? null)}\n`);
const reports = [];
const report = (of, what) => reports.push({ of, what });

const answers = new Map();
let held;
let refusing = false;

function filledIn(value, payload) {
  if (value === null || typeof value !== "object") return value;
  if ("$binary" in value) return Buffer.from(value.$binary);
  if ("$payload" in value) return payload[value.$payload];
  if (Array.isArray(value)) return value.map((item) => filledIn(item, payload));
  return Object.fromEntries(Object.entries(value).map(([k, v]) => [k, filledIn(v, payload)]));
}

const http = createServer();
http.on("upgrade", (request) => report("url", request.url));
const io = new Server(http, { transports: ["websocket"], ...options.server });
io.engine.on("connection", (connection) =>
  connection.on("packet", ({ type, data }) => report("packet", type + (data ?? ""))),
);

const chat = io.of("/data");
chat.use((client, next) => next(refusing ? new Error("not authorized") : undefined));
chat.on("connection", (client) => {
  report("query", client.handshake.query);
  client.on("disconnect", (reason) => report("disconnect", reason));
  client.onAny((event, ...items) => {
    const answer = typeof items.at(-1) === "function" ? items.pop() : undefined;
    if (!held) report("event", [event, items, answer !== undefined]);
    // The last request of a test, by which it knows that nothing else is to come.
    const chosen = items[0]?.group_id === "sentinel" ? [{ result: 0 }] : answers.get(event);
    if (!answer || !chosen) return;
    const send = () => answer(...filledIn(chosen, items[0]));
    if (held) held.push(send);
    else send();
  });
});

const commands = {
  answer: ({ event, items }) => void answers.set(event, items),
  hold: () => void (held = []),
  held: () => held.length,
  release() {
    held.forEach((send) => send());
    held = undefined;
  },
  push: ({ items }) => void chat.emit(...filledIn(items)),
  kick: () => chat.disconnectSockets(true),
  refuse: ({ on }) => void (refusing = on),
  reports: ({ of }) => reports.filter((each) => each.of === of).map(({ what }) => what),
  forget: () => void reports.splice(0),
};
createInterface({ input: process.stdin })
  .on("line", (line) => {
    const command = JSON.parse(line);
    say(commands[command.do](command));
  })
  .on("close", () => process.exit());

http.listen(options.port ?? 0, "127.0.0.1", () => say(http.address().port));
