// Groups: create_group, update_group, delete_group, leave_group.
import { conversation, conversationAnswer } from './conversations.mjs';
import { addMessage, addNotice, MessageType } from './messages.mjs';
import { refuse, Result } from './requests.mjs';
import { GroupType } from './store.mjs';

export function requireGroup(group) {
  if (group.type === GroupType.private)
    refuse(Result.wrongType, 'a private conversation is no group');
}

function requireOwner(group, client) {
  if (group.owner !== client.uin) refuse(Result.failed, 'only the owner may do that');
}

function pushUpdate(world, group, uins, client, { added = [], removed = [] } = {}) {
  const update = {
    group_id: group.id,
    name: group.name,
    avatar_url: group.avatarUrl,
    owner_uin: group.owner,
    push_all: added,
    pull_all: removed,
    blocked_all: [],
    unblocked_all: [],
  };
  world.push(uins, 'update_group', update, client);
}

/** Takes users into a group: members get "update_group", newcomers the "group" itself. */
export function addMembers(world, group, uins, client) {
  const newcomers = uins.filter((uin) => !group.members.includes(uin));
  if (newcomers.length === 0) return;
  const members = [...group.members];
  world.store.addMembers(group, newcomers);
  pushUpdate(world, group, members, client, { added: newcomers });
  addNotice(world, group, client.uin, MessageType.groupUpdate, { added_uins: newcomers }, client);
  for (const uin of newcomers) world.push([uin], 'group', conversation(world, group, uin), client);
}

function removeMember(world, group, uin, client) {
  world.store.removeMember(group, uin);
  addNotice(world, group, client.uin, MessageType.groupUpdate, { removed_uin: uin }, client);
}

export const groupRequests = (world) => ({
  create_group(client, payload) {
    const type = payload.integer('type');
    const owner = payload.ownUin('owner_uin', client);
    const members = [...new Set([owner, ...payload.uins('occupants_uins')])];
    const name = payload.text('name', '');
    const avatarUrl = payload.text('avatar_url', '');
    const sender = {
      sender_name: payload.text('sender_name', ''),
      sender_avatar: payload.text('sender_avatar', ''),
    };
    if (!Object.values(GroupType).includes(type))
      refuse(Result.wrongType, `unknown group type ${type}`);
    if (type === GroupType.private) {
      if (members.length !== 2) refuse(Result.wrongType, 'a private conversation has two users');
      return conversationAnswer(world, world.store.privateGroup(...members), client.uin);
    }

    const group = world.store.addGroup({ type, owner, members, name, avatarUrl });
    addMessage(world, group, owner, { type: MessageType.firstMessage, ...sender });
    for (const uin of members) world.push([uin], 'group', conversation(world, group, uin), client);
    return conversationAnswer(world, group, client.uin);
  },

  /** Members rename and invite; the owner also removes members and names another owner. */
  update_group(client, payload) {
    const group = world.store.groupOf(payload.id('group_id'), client.uin);
    requireGroup(group);
    const removed = payload.uins('pull_all', []);
    const added = payload.uins('push_all', []).filter((uin) => !group.members.includes(uin));
    const owner = payload.uin('owner_uin', group.owner);
    const name = payload.text('name', '') || group.name;
    const avatarUrl = payload.text('avatar_url', '') || group.avatarUrl;
    if (removed.length > 0 || owner !== group.owner) requireOwner(group, client);
    const stays = (uin) => group.members.includes(uin) && !removed.includes(uin);
    if (!removed.every((uin) => group.members.includes(uin)) || !stays(owner)) {
      refuse(Result.userNotFound, 'not a member of the group');
    }
    world.store.requireRoomFor(group.members.length - removed.length + added.length);

    const isRenamed = name !== group.name || avatarUrl !== group.avatarUrl;
    const isHandedOver = owner !== group.owner;
    Object.assign(group, { name, avatarUrl, owner });
    if (removed.length > 0 || isRenamed || isHandedOver) {
      pushUpdate(world, group, group.members, client, { removed });
    }
    const notify = (update) =>
      addNotice(world, group, client.uin, MessageType.groupUpdate, update, client);
    if (isRenamed) notify({ updated_group_name: name, updated_group_avatar: avatarUrl });
    if (isHandedOver) notify({ owner_uin: owner });
    for (const uin of removed) removeMember(world, group, uin, client);
    addMembers(world, group, added, client);
    group.updatedAt = String(world.store.now());
    return conversationAnswer(world, group, client.uin);
  },

  delete_group(client, payload) {
    const group = world.store.groupOf(payload.id('group_id'), client.uin);
    requireGroup(group);
    requireOwner(group, client);
    world.store.removeGroup(group);
    world.push(group.members, 'delete_group', { group_id: group.id }, client);
    return { result: Result.ok };
  },

  /** An owner who leaves hands the group to its oldest member; the last member deletes it. */
  leave_group(client, payload) {
    const group = world.store.groupOf(payload.id('group_id'), client.uin);
    requireGroup(group);
    const before = group.members;
    world.store.removeMember(group, client.uin);
    if (group.owner === client.uin) group.owner = group.members[0] ?? '';
    pushUpdate(world, group, before, client, { removed: [client.uin] });
    addNotice(world, group, client.uin, MessageType.leaveGroup, {}, client);
    if (group.members.length === 0) world.store.removeGroup(group);
    return { result: Result.ok };
  },
});
