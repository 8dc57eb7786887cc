// Secret chats: only the public keys pass through here, untouched.
import { conversation } from './conversations.mjs';
import { refuse, Result } from './requests.mjs';
import { GroupType } from './store.mjs';

const keyBundle = (payload, uin) => ({
  uin,
  device_id: payload.text('device_id'),
  identity_key: payload.text('identity_key'),
  base_key: payload.text('base_key'),
  one_time_pre_key: payload.text('one_time_pre_key'),
});

function findSecretChat(world, client, payload) {
  const group = world.store.groupOf(payload.id('group_id'), client.uin);
  return group.secret ? group : refuse(Result.wrongType, 'no secret chat');
}

export const secretChatRequests = (world) => ({
  start_secret_chat(client, payload) {
    const owner = payload.ownUin('owner_uin', client);
    const receiver = payload.uin('receiver_uin');
    const keys = keyBundle(payload, owner);
    if (receiver === owner) refuse(Result.invalid, 'a secret chat needs another user');
    const group = world.store.addGroup({
      type: GroupType.private,
      owner,
      members: [owner, receiver],
      secret: true,
    });
    group.secrets.push(keys);
    world.push([receiver], 'start_secret_chat', { group_id: group.id, ...keys }, client);
    return { result: Result.ok, group: conversation(world, group, client.uin) };
  },

  accept_secret_chat(client, payload) {
    const group = findSecretChat(world, client, payload);
    const keys = keyBundle(payload, payload.ownUin('accept_uin', client));
    if (group.owner === client.uin) refuse(Result.userNotFound, 'the other side accepts');
    group.secrets = [...group.secrets.filter(({ uin }) => uin !== client.uin), keys];
    world.push([group.owner], 'accept_secret_chat', { group_id: group.id, ...keys }, client);
    return { result: Result.ok };
  },

  delete_secret_chat(client, payload) {
    const group = findSecretChat(world, client, payload);
    world.store.removeGroup(group);
    const notice = { group_id: group.id, group_name: group.name, group_avatar: group.avatarUrl };
    world.push(group.members, 'delete_secret_chat', notice, client);
    return { result: Result.ok };
  },
});
