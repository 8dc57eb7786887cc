// Proxies that take every name for this machine's, and report which ones they were asked for.
import { once } from "node:events";
import { createServer as createHttpServer } from "node:http";
import { connect, createServer } from "node:net";

function join(socket, port, opened) {
  const far = connect(port, "127.0.0.1", () => {
    opened();
    socket.pipe(far).pipe(socket);
  });
  const ends = [socket, far];
  for (const end of ends) end.on("error", () => ends.forEach((each) => each.destroy()));
}

function httpProxy(login, report) {
  const wanted = login && `Basic ${Buffer.from(login).toString("base64")}`;
  return createHttpServer().on("connect", ({ url, headers }, socket) => {
    if (wanted && headers["proxy-authorization"] !== wanted) {
      return socket.end("HTTP/1.1 407 Who are you?\r\nContent-Length: 2\r\n\r\nno");
    }
    report("asked", url);
    join(socket, url.split(":").at(-1), () => socket.write("HTTP/1.1 200 OK\r\nVia: here\r\n\r\n"));
  });
}

async function take(socket, count) {
  for (;;) {
    const bytes = socket.read(count);
    if (bytes) return bytes;
    if (socket.readableEnded) throw new Error("this is no question");
    await once(socket, "readable");
  }
}

const takeText = async (socket) => String(await take(socket, (await take(socket, 1))[0]));

async function answer(socket, login, report) {
  const methods = await take(socket, (await take(socket, 2))[1]);
  const method = login ? 2 : 0;
  if (!methods.includes(method)) return socket.end("\x05\xff", "latin1");
  socket.write(Buffer.from([5, method]));
  if (login) {
    await take(socket, 1);
    const isRight = `${await takeText(socket)}:${await takeText(socket)}` === login;
    if (!isRight) return socket.end("\x01\x01");
    socket.write("\x01\x00");
  }
  const type = (await take(socket, 4))[3];
  const host = type === 3 ? await takeText(socket) : [...(await take(socket, type * 4))].join(".");
  const port = (await take(socket, 2)).readUInt16BE();
  report("asked", `${host}:${port}`);
  join(socket, port, () => socket.write("\x05\x00\x00\x01\x7f\x00\x00\x01\x00\x01"));
}

const socksProxy = (login, report) =>
  createServer((socket) => void answer(socket, login, report).catch(() => socket.destroy()));

/// The port of a proxy of a kind, that wants to be told the login unless that is empty.
export async function proxy({ kind, login }, report) {
  const server = kind === "http" ? httpProxy(login, report) : socksProxy(login, report);
  await once(server.listen(0, "127.0.0.1"), "listening");
  return server.address().port;
}
