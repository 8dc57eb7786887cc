#!/usr/bin/env node
// The sandbox: a local chat server for KorivaSDK. node server.mjs --help
import { createServer } from 'node:http';
import { parseArgs } from 'node:util';
import { Server } from 'socket.io';
import { callRequests } from './calls.mjs';
import { contactRequests } from './contacts.mjs';
import { conversationRequests } from './conversations.mjs';
import { groupRequests } from './groups.mjs';
import { linkRequests } from './links.mjs';
import { messageRequests } from './messages.mjs';
import { operatorDoor } from './operator.mjs';
import { secretChatRequests } from './secret-chats.mjs';
import { Sessions } from './sessions.mjs';
import { Store } from './store.mjs';
import { Traffic } from './traffic.mjs';

const host = '127.0.0.1';
const usage = `usage: node server.mjs [--port N] [--ping-interval MS] [--ping-timeout MS]

  --port N            TCP port on ${host}; 0 picks a free one (2082)
  --ping-interval MS  time between two heartbeats (25000)
  --ping-timeout MS   time to wait for a heartbeat's answer (20000)`;

function fail(text) {
  console.error(`sandbox: ${text}`);
  process.exit(2);
}

function readOptions() {
  const text = (value) => ({ type: 'string', default: value });
  const options = {
    port: text('2082'),
    'ping-interval': text('25000'),
    'ping-timeout': text('20000'),
    help: { type: 'boolean', short: 'h', default: false },
  };
  let values;
  try {
    ({ values } = parseArgs({ options }));
  } catch (error) {
    fail(`${error.message.split('. ')[0]}\n${usage}`);
  }
  if (values.help) {
    console.log(usage);
    process.exit(0);
  }
  const number = (name, least, most) => {
    const value = Number(values[name]);
    if (/^\d+$/.test(values[name]) && value >= least && value <= most) return value;
    return fail(`--${name} takes a number from ${least} to ${most}, not "${values[name]}"`);
  };
  return {
    port: number('port', 0, 65535),
    pingInterval: number('ping-interval', 10, 3600000),
    pingTimeout: number('ping-timeout', 10, 3600000),
  };
}

const { port, ...heartbeat } = readOptions();
const traffic = new Traffic();
const http = createServer((request, response) => door(request, response));
const io = new Server(http, { ...heartbeat, serveClient: false, maxHttpBufferSize: 1e6 });
const sessions = new Sessions(io.of('/data'), traffic, new Store());
const door = operatorDoor(sessions, traffic);
const areas = [
  conversationRequests,
  messageRequests,
  groupRequests,
  linkRequests,
  contactRequests,
  callRequests,
  secretChatRequests,
];
for (const area of areas) sessions.answer(area(sessions));

http.on('error', (error) => {
  if (error.code === 'EADDRINUSE') fail(`port ${port} is in use; choose another with --port, or 0`);
  fail(error.code === 'EACCES' ? `port ${port} is not permitted` : error.message);
});
http.listen(port, host, () => {
  console.log(`sandbox: listening on http://${host}:${http.address().port}`);
});

function stop() {
  io.close();
  http.closeAllConnections?.();
  setTimeout(() => process.exit(0), 1000).unref();
}
process.once('SIGTERM', stop);
process.once('SIGINT', stop);
