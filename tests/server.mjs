#!/usr/bin/env node
// A scriptable server. Commands come as JSON lines on standard input, each is answered by one JSON
// line on standard output, which is {"refused":"why"} for what it cannot do; the first line is the
// port. It ends with its standard input.
//
//   {"do":"answer","event":"x","items":[…]}   answers to "x" from now on
//   {"do":"push","items":["event",…]}         to every client
//   {"do":"refuse","on":true}                 refuses the namespace
//   {"do":"reports","of":"x"}                 what has happened, of the kind x, in order
//   {"do":"forget"}                           what has happened
//   {"do":"certify","name":"x","newest":"v"}  shows x.pem over TLS, and speaks up to that version
//   {"do":"renegotiate"}                      asks the latest TLS client to, and reports the outcome
//   {"do":"play","scripts":["…",…]}           the port of a hostile server; its last script is for the rest
//   {"do":"proxy","kind":"http","login":"x"}  the port of a proxy, as proxy.mjs says
//
// In items, {"$binary":"text"} stands for bytes and {"$payload":"key"} for what the request holds.
import { readFileSync } from "node:fs";
import { createServer } from "node:http";
import { createServer as createTlsServer } from "node:https";
import { createRequire } from "node:module";
import { createInterface } from "node:readline";
import { hostileServer } from "./hostile_server.mjs";
import { proxy } from "./proxy.mjs";

const require = createRequire(new URL("../sandbox/package.json", import.meta.url));
const { Server } = require("socket.io");

const options = JSON.parse(process.argv[2]);
const say = (value) => process.stdout.write(`${JSON.stringify(value ?? null)}\n`);
const reports = [];
const report = (of, what) => reports.push({ of, what });

const answers = new Map();
let refusing = false;

const filledIn = (items, payload) =>
  JSON.parse(JSON.stringify(items), (key, value) => {
    if (value?.$binary !== undefined) return Buffer.from(value.$binary);
    return value?.$payload === undefined ? value : payload[value.$payload];
  });

const http = options.tls
  ? createTlsServer({ requestCert: true, rejectUnauthorized: false })
  : createServer();
let latest;
http.on("secureConnection", (socket) => {
  latest = socket;
  report("name", socket.servername);
  report("client", socket.getPeerCertificate().subject?.CN);
});
http.on("upgrade", (request) => report("url", request.url));
const io = new Server(http, { transports: ["websocket"] });

const chat = io.of("/data");
chat.use((client, next) => next(refusing ? new Error("not authorized") : undefined));
chat.on("connection", (client) => {
  client.on("disconnect", (reason) => report("disconnect", reason));
  client.onAny((event, ...items) => {
    const answer = typeof items.at(-1) === "function" ? items.pop() : undefined;
    report("event", [event, items, answer !== undefined]);
    // The last request of a test, by which it knows that nothing else is to come.
    const chosen = items[0]?.group_id === "sentinel" ? [{ result: 0 }] : answers.get(event);
    if (answer && chosen) answer(...filledIn(chosen, items[0]));
  });
});

const commands = {
  answer: ({ event, items }) => void answers.set(event, items),
  push: ({ items }) => void chat.emit(...filledIn(items)),
  refuse: ({ on }) => void (refusing = on),
  reports: ({ of }) => reports.filter((each) => each.of === of).map(({ what }) => what),
  forget: () => void reports.splice(0),
  certify({ name, newest: maxVersion }) {
    const [key, cert] = [readFileSync(`${name}.key`), readFileSync(`${name}.pem`)];
    const versions = { ciphers: "ALL:@SECLEVEL=0", minVersion: "TLSv1", maxVersion };
    http.setSecureContext({ key, cert, ...versions });
  },
  renegotiate() {
    latest.once("error", ({ code }) => report("renegotiation", code));
    return latest.renegotiate({}, (error) => report("renegotiation", error?.code ?? "done"));
  },
  play: ({ scripts }) => hostileServer(scripts, report),
  proxy: (wanted) => proxy(wanted, report),
};
createInterface({ input: process.stdin })
  .on("line", async (line) => {
    try {
      const command = JSON.parse(line);
      say(await commands[command.do](command));
    } catch (error) {
      say({ refused: error.message });
    }
  })
  .on("close", () => process.exit());

http.listen(0, "127.0.0.1", () => say(http.address().port));
