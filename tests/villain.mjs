// A hostile server, that follows a script with each of its peers. A script is steps with " + "
// between: one of the functions below, raw:bytes, or a frame as the first byte of it and its
// payload. In bytes %0a stands for one and <3*x> for xxx.
import { on, once } from "node:events";
import { createServer } from "node:http";
import { createRequire } from "node:module";
import { setTimeout as sleep } from "node:timers/promises";

const require = createRequire(new URL("../sandbox/package.json", import.meta.url));
const { WebSocketServer } = require("ws");

const webSockets = new WebSocketServer({ noServer: true, perMessageDeflate: true });

const repeated = (text) =>
  text.replace(/<(\d+)\*([^<>]*)>/g, (_, times, part) => part.repeat(times));
const unescaped = (text) => unescape(repeated(repeated(text)));

function frame(head, payload) {
  const start = Buffer.from([head, 127, 0, 0, 0, 0, 0, 0, 0, 0]);
  start.writeUInt32BE(payload.length, 6);
  if (payload.length >= 65536) return Buffer.concat([start, payload]);
  const long = payload.length >= 126;
  start[1] = long ? 126 : payload.length;
  return Buffer.concat([start.subarray(0, 2), start.subarray(long ? 8 : 10), payload]);
}

let seed = 20822;
const random = (below) => (seed = (seed * 16807) % 2147483647) % below;

class Peer {
  constructor(socket) {
    this.socket = socket;
    socket.on("error", () => {});
    socket.on("end", () => socket.destroy());
  }

  async play(script) {
    for (const step of script.split(" + ")) {
      const [, head, bytes] = /^(raw|..):([^]*)/.exec(step) ?? [];
      if (!head) await this[step]();
      else this.write(Buffer.from(unescaped(bytes), "latin1"), parseInt(head, 16));
    }
  }
  write(bytes, head) {
    this.last = head >= 0 ? frame(head, bytes) : bytes;
    this.socket.write(this.last);
  }
  say(text) {
    this.write(Buffer.from(text), 0x81);
  }
  async hear(pattern) {
    for (;;) {
      const found = pattern.exec((await this.messages.next()).value[0]);
      if (found) return found[1];
    }
  }
  hearEvent = () => this.hear(/^42\/data,(\d+)/);
  reply(id) {
    this.say(`43/data,${id}[{"result":0}]`);
  }

  hello = () => once(this.socket, "data");
  async request() {
    [this.handshake] = await once(this.socket, "request");
    this.socket.resume();
  }
  upgrade() {
    webSockets.handleUpgrade(this.handshake, this.socket, Buffer.alloc(0), (webSocket) => {
      this.messages = on(webSocket, "message");
    });
  }
  join = () => this.hear(/^40\/data,$/);
  welcome() {
    const open = '81:0{"pingInterval":25000,"pingTimeout":25000}';
    return this.play(`request + upgrade + ${open} + join + 81:40/data,{}`);
  }
  async answer() {
    const id = await this.hearEvent();
    this.reply(id);
    this.reply(id); // for good measure
  }
  async serve() {
    for (;;) await this.answer();
  }
  async chaos() {
    for (let late = 0; ; ) {
      const id = await this.hearEvent();
      const dice = random(200);
      if (dice < 160) this.reply(id);
      if (dice < 40) this.reply(late);
      if (dice === 160) this.say("41/data,");
      if (dice === 161) this.reset();
      if (dice === 162) return;
      if (dice === 163) await sleep(random(90));
      if (dice > 163) late = id;
    }
  }
  async repeat() {
    this.socket.pause();
    for (; !this.socket.destroyed; await sleep(20)) this.socket.write(this.last);
  }
  hold = () => once(this.socket, "close");
  reset = () => this.socket.resetAndDestroy();
}

/// The port of a server with these scripts, the last of which serves all further peers.
export async function villain(scripts, report) {
  const http = createServer();
  http.on("upgrade", (request, socket) => socket.emit("request", request));
  http.on("clientError", () => {}); // who breaks off or speaks TLS
  http.on("connection", (socket) => {
    report("came");
    socket.on("close", () => report("left"));
    const script = scripts.length > 1 ? scripts.shift() : scripts[0];
    const end = () => socket.end();
    new Peer(socket).play(script).then(end, end);
  });
  await once(http.listen(0, "127.0.0.1"), "listening");
  return http.address().port;
}
