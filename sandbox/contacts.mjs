// Blocking, push tokens and the logout notice.
import { refuse, Result } from './requests.mjs';
import { GroupType } from './store.mjs';

const tokenTypes = new Set([0, 1, 2, 4]);
const tokensPerUser = 20;

function findBlock(world, client, payload) {
  const group = world.store.groupOf(payload.id('group_id'), client.uin);
  const blocked = payload.uin('blocked_uin');
  if (!group.members.includes(blocked))
    refuse(Result.userNotFound, 'not a member of the conversation');
  if (blocked === client.uin) refuse(Result.invalid, 'nobody blocks himself');
  return { group, blocked, notice: { group_id: group.id, blocked_uin: blocked } };
}

export const contactRequests = (world) => ({
  /** Either side of a private conversation blocks the other; in a group the owner does. */
  block_user(client, payload) {
    const { group, blocked, notice } = findBlock(world, client, payload);
    if (group.type !== GroupType.private && group.owner !== client.uin) {
      refuse(Result.failed, 'only the owner blocks members of a group');
    }
    if (group.blocks.has(blocked)) return { result: Result.ok };
    group.blocks.set(blocked, client.uin);
    world.push(group.members, 'block_user', notice, client);
    return { result: Result.ok };
  },

  unblock_user(client, payload) {
    const { group, blocked, notice } = findBlock(world, client, payload);
    if (group.blocks.get(blocked) !== client.uin) refuse(Result.failed, 'not blocked by this user');
    group.blocks.delete(blocked);
    world.push(group.members, 'unblock_user', notice, client);
    return { result: Result.ok };
  },

  blocked_list(client, payload) {
    const uin = payload.ownUin('uin', client);
    const list = world.store
      .groupsOf(uin)
      .flatMap((group) =>
        [...group.blocks]
          .filter(([, blocker]) => blocker === uin)
          .map(([blocked]) => ({ uin: blocked, group_id: group.id })),
      );
    return { result: Result.ok, list };
  },

  register_profile_token(client, payload) {
    const uin = payload.ownUin('uin', client);
    const type = payload.integer('type');
    const token = payload.text('token', undefined, 4096);
    const deviceId = payload.text('device_id', '', 1000);
    if (!tokenTypes.has(type)) refuse(Result.wrongType, `unknown token type ${type}`);
    if (token === '') refuse(Result.invalid, 'the token is empty');
    const tokens = world.store.pushTokens.get(uin) ?? new Map();
    tokens.set(token, { type, deviceId });
    if (tokens.size > tokensPerUser) tokens.delete(tokens.keys().next().value);
    world.store.pushTokens.set(uin, tokens);
    return { result: Result.ok };
  },

  unregister_profile_token(client, payload) {
    const uin = payload.ownUin('uin', client);
    const token = payload.text('token', undefined, 4096);
    const isKnown = world.store.pushTokens.get(uin)?.delete(token);
    return isKnown ? { result: Result.ok } : refuse(Result.failed, 'unknown token');
  },

  /** The connection stays; the user counts as offline on it and its push tokens go. */
  logout(client, payload) {
    const uin = payload.ownUin('uin', client);
    payload.integer('version', 0);
    const tokens = world.store.pushTokens.get(uin) ?? new Map();
    for (const [token, { deviceId }] of tokens)
      if (deviceId === client.deviceId) tokens.delete(token);
    world.goOffline(client);
    return { result: Result.ok };
  },
});
