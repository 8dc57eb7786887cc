// Everything the sandbox remembers, in memory and bounded. Ids are decimal texts, because some
// requests carry them as integers.
import { isUin, refuse, Result } from './requests.mjs';

export const GroupType = { private: 1, group: 2, public: 3 };

const limits = { groups: 10000, messages: 1000, calls: 1000, members: 1000 };
const pairBase = 1e7;

export class Store {
  groups = new Map();
  calls = new Map();
  links = new Map();
  pushTokens = new Map();
  #lastTime = 0;
  #lastId = { group: 100, message: 1000000, call: 5000 };

  /** Microseconds since 1970, never twice the same. */
  now() {
    this.#lastTime = Math.max(Date.now() * 1000, this.#lastTime + 1);
    return this.#lastTime;
  }

  nextId(kind) {
    return String(++this.#lastId[kind]);
  }

  // Conversations

  addGroup({ id, type, owner, members, name = '', avatarUrl = '', secret = false }) {
    if (this.groups.size >= limits.groups)
      refuse(Result.failed, 'the sandbox is full of conversations');
    if (members.length > limits.members) refuse(Result.failed, 'too many members');
    const time = String(this.now());
    const group = {
      id: id ?? this.nextId('group'),
      type,
      owner,
      creator: owner,
      name,
      avatarUrl,
      secret,
      members,
      removed: new Set(),
      muted: new Set(),
      pinned: new Set(),
      hidden: new Set(),
      blocks: new Map(),
      received: new Map(),
      seen: new Map(),
      lastActive: new Map(),
      secrets: [],
      messages: [],
      nonces: new Map(),
      createdAt: time,
      updatedAt: time,
    };
    this.groups.set(group.id, group);
    return group;
  }

  removeGroup(group) {
    this.groups.delete(group.id);
    for (const [token, link] of this.links) if (link.group === group) this.links.delete(token);
  }

  requireRoomFor(count) {
    if (count > limits.members) refuse(Result.failed, 'too many members');
  }

  addMembers(group, uins) {
    this.requireRoomFor(group.members.length + uins.length);
    group.members.push(...uins);
    for (const uin of uins) group.removed.delete(uin);
  }

  removeMember(group, uin) {
    group.members = group.members.filter((member) => member !== uin);
    group.removed.add(uin);
    for (const set of [group.muted, group.pinned, group.hidden, group.blocks]) set.delete(uin);
  }

  /** The one private conversation of two users, made when it is first named. */
  privateGroup(uin, peer) {
    const [low, high] = [uin, peer].map(Number).sort((a, b) => a - b);
    const matches = (group) =>
      group.type === GroupType.private &&
      !group.secret &&
      group.members.includes(uin) &&
      group.members.includes(peer);
    if (high >= pairBase) {
      return [...this.groups.values()].find(matches) ?? this.#addPrivate(undefined, uin, peer);
    }
    const id = String(low * pairBase + high);
    return this.groups.get(id) ?? this.#addPrivate(id, uin, peer);
  }

  #addPrivate(id, uin, peer) {
    return this.addGroup({ id, type: GroupType.private, owner: uin, members: [uin, peer] });
  }

  #privateGroupById(id, uin) {
    const [low, high] = [Math.floor(Number(id) / pairBase), Number(id) % pairBase];
    const pair = [String(low), String(high)];
    if (!/^[1-9]\d{7,13}$/.test(id) || low >= high || !isUin(pair[0]) || !pair.includes(uin)) {
      return undefined;
    }
    return this.privateGroup(
      uin,
      pair.find((other) => other !== uin),
    );
  }

  /** The conversation of that id, which the user must be a member of. */
  groupOf(id, uin) {
    const group = this.groups.get(id) ?? this.#privateGroupById(id, uin);
    if (!group) refuse(Result.failed, `unknown group ${id}`);
    if (!group.members.includes(uin)) refuse(Result.userNotFound, `not a member of group ${id}`);
    return group;
  }

  groupsOf(uin) {
    return [...this.groups.values()].filter((group) => group.members.includes(uin));
  }

  /** Everybody who shares a conversation with the user. */
  contactsOf(uin) {
    const contacts = new Set(this.groupsOf(uin).flatMap((group) => group.members));
    contacts.delete(uin);
    return [...contacts];
  }

  // Messages: kept as the records that travel

  addMessage(group, message, nonce) {
    group.messages.push(message);
    if (nonce) group.nonces.set(nonce, message);
    if (group.messages.length > limits.messages) this.removeMessage(group, group.messages[0]);
    group.hidden.clear();
    group.lastActive.set(message.sender_uin, message.message_id);
    group.updatedAt = message.created_at;
  }

  removeMessage(group, message) {
    group.messages.splice(group.messages.indexOf(message), 1);
    for (const [nonce, known] of group.nonces) {
      if (known !== message) continue;
      group.nonces.delete(nonce);
      break;
    }
  }

  // Calls

  addCall(call) {
    this.calls.set(call.call_id, call);
    if (this.calls.size > limits.calls) this.calls.delete(this.calls.keys().next().value);
  }
}
