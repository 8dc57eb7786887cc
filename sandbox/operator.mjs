// The operator's door: a page that shows the sandbox at work, and POST /push.
import { readFileSync } from 'node:fs';
import { isUin } from './requests.mjs';

const longestBody = 1e6;
const longestBacklog = 4e6;
const reservedEvents = new Set([
  'connect',
  'connect_error',
  'disconnect',
  'disconnecting',
  'newListener',
  'removeListener',
]);
const headers = {
  'cache-control': 'no-store',
  'content-security-policy':
    "default-src 'none'; style-src 'unsafe-inline'; script-src 'unsafe-inline'; " +
    "connect-src 'self'; img-src data:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'",
  'x-content-type-options': 'nosniff',
};

const readFile = (name) => readFileSync(new URL(name, import.meta.url));
const page = readFile('page.html');
const samples = readFile('samples.json');

const isLoopback = (address) =>
  ['127.0.0.1', 'localhost', '[::1]'].includes(new URL(address).hostname);

/** Web pages from elsewhere must not get in, neither by their origin nor by a name of their own. */
function isTrusted({ headers: { host = '', origin } }) {
  try {
    return isLoopback(`http://${host}`) && (origin === undefined || isLoopback(origin));
  } catch {
    return false;
  }
}

function send(response, status, body, type = 'application/json') {
  response.writeHead(status, { ...headers, 'content-type': `${type}; charset=utf-8` });
  response.end(type === 'application/json' && !Buffer.isBuffer(body) ? JSON.stringify(body) : body);
}

class BadRequest extends Error {
  constructor(status, text) {
    super(text);
    this.status = status;
  }
}

async function readJson(request) {
  const type = request.headers['content-type'] ?? '';
  if (!/^application\/json\s*(;|$)/i.test(type)) {
    throw new BadRequest(415, 'the content type must be application/json');
  }
  const chunks = [];
  let size = 0;
  for await (const chunk of request) {
    size += chunk.length;
    if (size > longestBody) throw new BadRequest(413, 'the body is too long');
    chunks.push(chunk);
  }
  try {
    return JSON.parse(Buffer.concat(chunks).toString('utf8'));
  } catch (error) {
    throw new BadRequest(400, `the body is not JSON: ${error.message}`);
  }
}

async function push(sessions, request) {
  const { uin, event, items } = (await readJson(request)) ?? {};
  const receiver = String(uin);
  if (!isUin(receiver)) throw new BadRequest(400, '"uin" must be a user id');
  if (typeof event !== 'string' || event === '' || reservedEvents.has(event)) {
    throw new BadRequest(400, '"event" must be the name of an event');
  }
  if (!Array.isArray(items)) throw new BadRequest(400, '"items" must be a list');
  let delivered;
  try {
    delivered = sessions.pushRaw(receiver, event, items);
  } catch (error) {
    throw new BadRequest(400, `these items cannot be sent: ${error.message}`);
  }
  if (delivered === 0) throw new BadRequest(404, `user ${receiver} is not connected`);
  return { delivered };
}

/** Server-sent events: "people" with the connections, "line" with each line of traffic. */
function feed(sessions, traffic, response) {
  response.writeHead(200, { ...headers, 'content-type': 'text/event-stream' });
  const tell = (event, data) =>
    response.write(`event: ${event}\ndata: ${JSON.stringify(data)}\n\n`);
  tell('start', {});
  const stop = traffic.watch((line) => {
    if (response.writableLength < longestBacklog) tell('line', line);
    if (line.kind.endsWith('connected')) tell('people', sessions.list());
  });
  tell('people', sessions.list());
  response.on('close', stop);
}

export function operatorDoor(sessions, traffic) {
  const routes = {
    'GET /': (request, response) => send(response, 200, page, 'text/html'),
    'GET /samples': (request, response) => send(response, 200, samples),
    'GET /feed': (request, response) => feed(sessions, traffic, response),
    'POST /push': async (request, response) => send(response, 200, await push(sessions, request)),
  };
  return async (request, response) => {
    try {
      if (!isTrusted(request)) throw new BadRequest(403, 'only for this machine');
      const route = routes[`${request.method} ${request.url.split('?')[0]}`];
      if (!route) throw new BadRequest(404, 'there are GET / and POST /push');
      await route(request, response);
    } catch (error) {
      if (response.headersSent) response.destroy();
      else send(response, error.status ?? 500, { error: error.message });
    }
  };
}
