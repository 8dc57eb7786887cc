// As echo_server.cpp, on the official server: node echo_server.mjs [--compression]
import { readFileSync } from 'node:fs';
import { createServer } from 'node:http';
import { createRequire } from 'node:module';

const require = createRequire(new URL('../sandbox/package.json', import.meta.url));
const { Server } = require('socket.io');

const compression = process.argv.includes('--compression');
const push = JSON.parse(readFileSync(new URL('data/push.json', import.meta.url)));
const pushesAtOnce = 1000;

// No heartbeats, as in the other server.
const http = createServer();
const io = new Server(http, {
  transports: ['websocket'],
  perMessageDeflate: compression ? { threshold: 0 } : false,
  pingInterval: 300_000,
});

/** The next ones go when the transport has taken the ones before, so that they do not pile up. */
function flood(client, left) {
  for (let i = 0; i < Math.min(left, pushesAtOnce); ++i) client.emit('message', push);
  if (left > pushesAtOnce) client.conn.once('drain', () => flood(client, left - pushesAtOnce));
}

io.of('/data').on('connection', (client) => {
  client.onAny((event, payload, answer) => answer?.({ result: 0, message: payload }));
  const [, pushes] = /^flood-(\d+)$/.exec(client.handshake.query.deviceid) ?? [];
  if (pushes) flood(client, Number(pushes));
});

process.on('SIGTERM', () => process.exit());
http.listen(0, '127.0.0.1', () =>
  console.log(`listening on http://127.0.0.1:${http.address().port}`),
);
