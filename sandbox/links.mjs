// Invitation links: create_link, join_link, disable_link, list_link, link_group_info.
// A link is its token; a text that ends in "/" and the token is taken as well.
import { randomBytes } from 'node:crypto';
import { conversationAnswer } from './conversations.mjs';
import { addMembers, requireGroup } from './groups.mjs';
import { refuse, Result } from './requests.mjs';

const linksPerGroup = 100;

function findLink(world, payload) {
  const token = payload.text('token', undefined, 1000).split('/').at(-1);
  const link = world.store.links.get(token);
  return link ? { token, ...link } : refuse(Result.failed, 'unknown or disabled link');
}

const linksOf = (world, group) =>
  [...world.store.links].filter(([, link]) => link.group === group).map(([token]) => token);

export const linkRequests = (world) => ({
  create_link(client, payload) {
    const group = world.store.groupOf(payload.id('group_id'), client.uin);
    requireGroup(group);
    if (linksOf(world, group).length >= linksPerGroup) refuse(Result.failed, 'too many links');
    const link = randomBytes(8).toString('hex');
    world.store.links.set(link, { group });
    return { result: Result.ok, link };
  },

  list_link(client, payload) {
    const group = world.store.groupOf(payload.id('group_id'), client.uin);
    return { result: Result.ok, links: payload.page().cut(linksOf(world, group)) };
  },

  join_link(client, payload) {
    const { group } = findLink(world, payload);
    addMembers(world, group, [client.uin], client);
    return conversationAnswer(world, group, client.uin);
  },

  disable_link(client, payload) {
    const { group, token } = findLink(world, payload);
    world.store.groupOf(group.id, client.uin);
    world.store.links.delete(token);
    return { result: Result.ok };
  },

  link_group_info(client, payload) {
    const { group } = findLink(world, payload);
    return conversationAnswer(world, group, client.uin);
  },
});
