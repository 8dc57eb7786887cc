// Who is connected: sessions from the connect parameters, presence, requests in and pushes out.
import { userStatus } from './conversations.mjs';
import { isUin, Payload, Refusal, refuse, Result } from './requests.mjs';

const firstText = (value) => (typeof value === 'string' ? value : '');

/** The digits at the end of a session token are the user id: "token-1001" is user 1001. */
function readSession({ session, deviceid, new: isNew }) {
  const token = firstText(session);
  const uin = /\d+$/.exec(token.slice(-20))?.[0] ?? '';
  return {
    uin: isUin(uin) ? uin : '',
    deviceId: firstText(deviceid),
    isNew: isNew === 'true',
    isExpired: token.startsWith('expired'),
  };
}

const room = (uin) => `user ${uin}`;

export class Sessions {
  #namespace;
  #traffic;
  #clients = new Map();
  #users = new Map();
  #handlers = new Map();

  constructor(namespace, traffic, store) {
    this.#namespace = namespace;
    this.#traffic = traffic;
    this.store = store;
    namespace.use((socket, next) => {
      const session = readSession(socket.handshake.query);
      if (session.uin || session.isExpired) return next();
      const text = 'Wrong session: a session token ends in a user id, as token-1001 does';
      next(Object.assign(new Error(text), { data: { result: Result.wrongSession } }));
    });
    namespace.on('connection', (socket) => this.#connect(socket));
  }

  answer(requests) {
    for (const [event, handler] of Object.entries(requests)) this.#handlers.set(event, handler);
  }

  list() {
    return [...this.#clients.values()].map(({ uin, deviceId, since, isExpired }) => ({
      uin,
      deviceId,
      since,
      isExpired,
    }));
  }

  /** The user's connections; those of an expired session do not count. */
  connectionsOf(uin) {
    return [...(this.#users.get(uin) ?? [])];
  }

  isOnline(uin) {
    return this.connectionsOf(uin).some((client) => client.isPresent);
  }

  /** Pushes to every connection of these users but the one that caused it. */
  push(uins, event, item, cause) {
    const receivers = [...new Set(uins)].filter((uin) =>
      this.connectionsOf(uin).some((client) => client.id !== cause?.id),
    );
    if (receivers.length === 0) return;
    for (const uin of receivers) this.#traffic.add('push', uin, event, [item]);
    const target = this.#namespace.to(receivers.map(room));
    (cause ? target.except(cause.id) : target).emit(event, item);
  }

  /** Sends any items to a user; gives the number of connections that they went to. */
  pushRaw(uin, event, items) {
    const count = this.connectionsOf(uin).length;
    if (count === 0) return 0;
    this.#namespace.to(room(uin)).emit(event, ...items);
    this.#traffic.add('push', uin, event, items);
    return count;
  }

  goOffline(client) {
    const wasOnline = this.isOnline(client.uin);
    client.isPresent = false;
    if (wasOnline && !this.isOnline(client.uin)) this.#tellStatus(client);
  }

  #tellStatus(client) {
    const contacts = this.store.contactsOf(client.uin);
    this.push(contacts, 'user_status', { user_status: userStatus(this, client.uin) }, client);
  }

  #connect(socket) {
    const session = readSession(socket.handshake.query);
    const client = { ...session, id: socket.id, since: Date.now(), isPresent: !session.isExpired };
    const wasOnline = this.isOnline(client.uin);
    this.#add(client, socket);
    this.#traffic.add('connected', client.uin, client.deviceId, []);
    socket.onAny((event, ...items) => this.#receive(client, socket, String(event), items));
    socket.on('disconnect', (reason) => {
      this.goOffline(client);
      this.#remove(client);
      this.#traffic.add('disconnected', client.uin, reason, []);
    });

    if (client.isExpired) {
      this.#pushTo(client, socket, 'login', { result: Result.expired, uin: client.uin });
      return;
    }
    if (!wasOnline) this.#tellStatus(client);
    if (client.isNew) this.#tellConflict(client);
  }

  #add(client, socket) {
    this.#clients.set(client.id, client);
    if (client.isExpired) return;
    socket.join(room(client.uin));
    if (!this.#users.has(client.uin)) this.#users.set(client.uin, new Set());
    this.#users.get(client.uin).add(client);
  }

  #remove(client) {
    this.#clients.delete(client.id);
    const connections = this.#users.get(client.uin);
    connections?.delete(client);
    if (connections?.size === 0) this.#users.delete(client.uin);
  }

  /** A new device session is reported to the user's other devices. */
  #tellConflict(client) {
    const others = this.connectionsOf(client.uin).filter(
      ({ deviceId }) => deviceId !== client.deviceId,
    );
    for (const other of others) {
      const socket = this.#namespace.sockets.get(other.id);
      if (socket) this.#pushTo(other, socket, 'error', { error: Result.loginConflict });
    }
  }

  #pushTo(client, socket, event, item) {
    this.#traffic.add('push', client.uin, event, [item]);
    socket.emit(event, item);
  }

  #receive(client, socket, event, items) {
    const acknowledge = typeof items.at(-1) === 'function' ? items.pop() : undefined;
    this.#traffic.add('request', client.uin, event, items);
    const answer = this.#handle(client, event, items[0]);
    if (acknowledge) {
      this.#traffic.add('answer', client.uin, event, [answer]);
      acknowledge(answer);
    } else if (answer.result !== Result.ok) {
      this.#pushTo(client, socket, 'error', { error: answer.result });
    }
  }

  #handle(client, event, item) {
    try {
      if (client.isExpired) refuse(Result.expired, 'the session has expired');
      const handler = this.#handlers.get(event);
      if (!handler) refuse(Result.invalid, `unknown request ${event.slice(0, 100)}`);
      return handler(client, new Payload(item));
    } catch (error) {
      if (error instanceof Refusal) return error.answer;
      console.error(`sandbox: ${event.slice(0, 100)}:`, error);
      return { result: Result.failed, reason: 'the sandbox failed; see its console' };
    }
  }
}
