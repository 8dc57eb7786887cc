// Messages: list_message, create_message, update_message, delete_message.
import { conversation } from './conversations.mjs';
import { undoAttachmentsEscaping, undoEscaping } from './escaping.mjs';
import { refuse, Result } from './requests.mjs';
import { GroupType } from './store.mjs';

export const MessageType = { text: 0, call: 1, firstMessage: 5, groupUpdate: 6, leaveGroup: 7 };
const messageTypes = new Set([0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 12, 13]);
const Status = { sent: 1, received: 2, seen: 3, deleted: 4 };

/** Stores a message of the sender; who is to hear of it is the caller's choice. */
export function addMessage(world, group, sender, content, nonce) {
  const others = group.members.filter((uin) => uin !== sender);
  const time = world.store.now();
  const message = {
    message_id: world.store.nextId('message'),
    group_id: group.id,
    group_name: group.name,
    group_avatar: group.avatarUrl,
    sender_uin: sender,
    sender_name: '',
    sender_avatar: '',
    send_uin: Number(sender),
    recv_uin: group.type === GroupType.private ? Number(others[0]) : 0,
    recipient_uins: others,
    seen_uins: [],
    received_uins: [],
    deleted_uins: [],
    status: Status.sent,
    created_at: String(time),
    updated_at: time,
    type: MessageType.text,
    message: '',
    attachments: '',
    version: 0,
    is_encrypted: false,
    ...content,
  };
  world.store.addMessage(group, message, nonce);
  return message;
}

/** A message that the service writes in the name of a member: pushed to everybody else. */
export function addNotice(world, group, sender, type, attachments, client) {
  const content = { type, attachments: JSON.stringify(attachments) };
  const message = addMessage(world, group, sender, content);
  world.push(group.members, 'message', message, client);
  return message;
}

/** The first message of a private conversation brings the conversation to the other side. */
function announce(world, group, client) {
  if (group.type !== GroupType.private || group.secret || group.messages.length !== 1) return;
  for (const uin of group.members)
    world.push([uin], 'group', conversation(world, group, uin), client);
}

function findMessage(world, client, payload) {
  const group = world.store.groupOf(payload.id('group_id'), client.uin);
  const id = payload.id('message_id');
  const message = group.messages.find((known) => known.message_id === id);
  return { group, message: message ?? refuse(Result.failed, `unknown message ${id}`) };
}

const addOnce = (list, uin) => list.includes(uin) || list.push(uin);

export const messageRequests = (world) => ({
  /** Newest first. Page 0 starts below "last_message_id", or with the newest message. */
  list_message(client, payload) {
    const group = world.store.groupOf(payload.id('group_id'), client.uin);
    const page = payload.page();
    const before = Number(payload.id('last_message_id', '') || Infinity);
    if (Number.isNaN(before)) refuse(Result.invalid, '"last_message_id" is not a message id');
    const visible = group.messages.filter(
      (message) =>
        Number(message.message_id) < before && !message.deleted_uins.includes(client.uin),
    );
    const messages = page.cut(visible.reverse());
    return {
      result: Result.ok,
      group_id: group.id,
      psize: page.size,
      pindex: page.index,
      last_message_id: messages.at(-1)?.message_id ?? '',
      messages,
    };
  },

  create_message(client, payload) {
    const group = world.store.groupOf(payload.id('group_id'), client.uin);
    const type = payload.integer('type', MessageType.text);
    const nonce = payload.text('nonce', '', 256);
    const content = {
      type,
      message: undoEscaping(payload.text('message', undefined, Infinity)),
      attachments: undoAttachmentsEscaping(payload.text('attachments', '', Infinity)),
      sender_name: payload.text('sender_name', ''),
      sender_avatar: payload.text('sender_avatar', ''),
      version: payload.integer('version', 0),
      is_encrypted: payload.flag('is_encrypted', false),
    };
    if (!messageTypes.has(type)) refuse(Result.wrongType, `unknown message type ${type}`);
    if (group.blocks.has(client.uin)) refuse(Result.failed, 'blocked in this conversation');
    const key = nonce && `${client.uin} ${nonce}`;
    const known = group.nonces.get(key);
    if (known) refuse(Result.duplicate, 'this message was sent before', { message: known });

    const message = addMessage(world, group, client.uin, content, key);
    announce(world, group, client);
    world.push(group.members, 'message', message, client);
    return { result: Result.ok, message };
  },

  /** Status 2 (received), 3 (seen) or 4 (deleted for oneself); a status never goes back. */
  update_message(client, payload) {
    const { group, message } = findMessage(world, client, payload);
    const status = payload.integer('status');
    if (status < Status.sent || status > Status.deleted) {
      refuse(Result.invalid, `unknown status ${status}`);
    }
    message.updated_at = world.store.now();
    if (status === Status.deleted) {
      addOnce(message.deleted_uins, client.uin);
      world.push([client.uin], 'update_message', message, client);
      return { result: Result.ok, message };
    }
    if (status >= Status.received) {
      addOnce(message.received_uins, client.uin);
      group.received.set(client.uin, message.message_id);
    }
    if (status >= Status.seen) {
      addOnce(message.seen_uins, client.uin);
      group.seen.set(client.uin, message.message_id);
    }
    message.status = Math.max(message.status, status);
    world.push(group.members, 'update_message', message, client);
    return { result: Result.ok, message };
  },

  /** For everybody ("delete_all": its sender or the owner may), or for oneself. */
  delete_message(client, payload) {
    const { group, message } = findMessage(world, client, payload);
    const forAll = payload.flag('delete_all', false);
    if (forAll && ![message.sender_uin, group.owner].includes(client.uin)) {
      refuse(Result.failed, 'only its sender or the owner deletes a message for all');
    }
    message.updated_at = world.store.now();
    if (forAll) {
      message.deleted_uins = [...group.members];
      message.status = Status.deleted;
      world.store.removeMessage(group, message);
    } else {
      addOnce(message.deleted_uins, client.uin);
    }
    world.push(forAll ? group.members : [client.uin], 'delete_message', message, client);
    return { result: Result.ok };
  },
});
