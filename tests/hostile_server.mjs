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
  const size = payload.length;
  let length = [size];
  if (size >= 126) length = [126, size >> 8, size];
  if (size >= 65536) length = [127, 0, 0, 0, 0, size >> 24, size >> 16, size >> 8, size];
  return Buffer.concat([Buffer.from([head, ...length]), payload]);
}

const stepsOf = (script) =>
  script.split(" + ").map((step) => /^(raw|[\da-f]{2}):([^]*)/.exec(step) ?? [step]);

const steps = "hello request upgrade join welcome answer serve repeat hold reset".split(" ");

class Peer {
  constructor(socket) {
    this.socket = socket;
    socket.on("error", () => {});
    socket.on("end", () => socket.destroy());
  }

  async play(script) {
    for (const [step, head, text] of stepsOf(script)) {
      if (!head) await this[step]();
      else this.write(head, unescaped(text));
    }
  }
  write(head, text) {
    const bytes = Buffer.from(text, "latin1");
    this.last = head === "raw" ? bytes : frame(parseInt(head, 16), bytes);
    this.socket.write(this.last);
  }
  async hear(pattern) {
    for (;;) {
      const found = pattern.exec((await this.messages.next()).value[0]);
      if (found) return found[1];
    }
  }
  hearEvent = () => this.hear(/^42\/data,(\d+)/);
  reply(id) {
    this.write("81", `43/data,${id}[{"result":0}]`);
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
    const open = '0{"pingInterval":300000,"pingTimeout":25000}';
    return this.play(`request + upgrade + 81:${open} + join + 81:40/data,{}`);
  }
  async answer() {
    const id = await this.hearEvent();
    this.reply(id);
    this.reply(id); // for good measure
  }
  async serve() {
    for (;;) await this.answer();
  }
  async repeat() {
    this.socket.pause();
    for (; !this.socket.destroyed; await sleep(20)) this.socket.write(this.last);
  }
  hold = () => once(this.socket, "close");
  reset = () => this.socket.resetAndDestroy();
}

/// The port of a server with these scripts, the last of which serves all further peers.
export async function hostileServer(scripts, report) {
  for (const [step, head] of scripts.flatMap(stepsOf)) {
    if (!head && !steps.includes(step)) throw new Error(`there is no step '${step}'`);
  }
  const http = createServer();
  for (const kind of ["upgrade", "connect"]) {
    http.on(kind, (request, socket) => socket.emit("request", request));
  }
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
