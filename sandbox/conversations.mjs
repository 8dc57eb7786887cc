// The conversation list: list_group, check_group, delete_conversation, mute and pin.
import { refuse, Result } from './requests.mjs';
import { GroupType } from './store.mjs';

const online = 1;
const offline = 2;

export const userStatus = (world, uin) => ({
  uin,
  online_status: world.isOnline(uin) ? online : offline,
  message_status: '',
});

/** The conversation as the viewer sees it. */
export function conversation(world, group, viewer) {
  const lastMessage = group.messages.findLast((message) => !message.deleted_uins.includes(viewer));
  return {
    group_id: group.id,
    name: group.name,
    avatar_url: group.avatarUrl,
    type: group.type,
    owner_uin: group.owner,
    creator_uin: group.creator,
    occupants_uins: group.members,
    removed_uins: [...group.removed],
    blocked_uins: [...group.blocks.keys()],
    muted_uins: [...group.muted],
    pinned_uins: [...group.pinned],
    received_list: Object.fromEntries(group.received),
    seen_list: Object.fromEntries(group.seen),
    created_at: group.createdAt,
    updated_at: group.updatedAt,
    last_message_id: lastMessage?.message_id ?? '',
    ...(lastMessage && { last_message: lastMessage }),
    last_active_messages: [...group.lastActive].map(([uin, message_id]) => ({ uin, message_id })),
    status_list: group.members.map((uin) => userStatus(world, uin)),
    secrets: group.secrets,
  };
}

export const conversationAnswer = (world, group, viewer) => ({
  result: Result.ok,
  group: conversation(world, group, viewer),
});

const sortKeys = [() => 0, (group) => Number(group.updatedAt), (group) => Number(group.createdAt)];

function toggle(world, setName, isOn) {
  return (client, payload) => {
    const group = world.store.groupOf(payload.id('group_id'), client.uin);
    if (isOn) group[setName].add(client.uin);
    else group[setName].delete(client.uin);
    return { result: Result.ok };
  };
}

export const conversationRequests = (world) => ({
  /** Pinned conversations first, then the latest. */
  list_group(client, payload) {
    const uin = payload.ownUin('uin', client);
    const page = payload.page();
    const key =
      sortKeys[payload.integer('sort_by', 1)] ?? refuse(Result.wrongType, 'unknown order');
    const isPinned = (group) => Number(group.pinned.has(uin));
    const groups = world.store
      .groupsOf(uin)
      .filter((group) => !group.hidden.has(uin))
      .sort((a, b) => isPinned(b) - isPinned(a) || key(b) - key(a));
    return {
      result: Result.ok,
      psize: page.size,
      pindex: page.index,
      groups: page.cut(groups).map((group) => conversation(world, group, uin)),
    };
  },

  /** Two users: their private conversation, made if need be. Groups are only found. */
  check_group(client, payload) {
    const type = Number(payload.text('type', String(GroupType.private))) || GroupType.private;
    const uins = new Set([...payload.uins('occupants_uins'), client.uin]);
    if (uins.size < 2) refuse(Result.invalid, 'a conversation needs two users');
    const isSame = (group) =>
      group.type === type &&
      group.members.length === uins.size &&
      group.members.every((uin) => uins.has(uin));
    const group =
      type === GroupType.private && uins.size === 2
        ? world.store.privateGroup(...uins)
        : world.store.groupsOf(client.uin).find(isSame);
    return group
      ? conversationAnswer(world, group, client.uin)
      : refuse(Result.failed, 'no such conversation');
  },

  /** Only for oneself: the history goes, and the conversation until its next message. */
  delete_conversation(client, payload) {
    const group = world.store.groupOf(payload.id('group_id'), client.uin);
    group.hidden.add(client.uin);
    for (const { deleted_uins } of group.messages) {
      if (!deleted_uins.includes(client.uin)) deleted_uins.push(client.uin);
    }
    world.push([client.uin], 'delete_conversation', { group_id: group.id }, client);
    return { result: Result.ok };
  },

  mute_group: toggle(world, 'muted', true),
  unmute_group: toggle(world, 'muted', false),
  pin_group: toggle(world, 'pinned', true),
  unpin_group: toggle(world, 'pinned', false),
});
