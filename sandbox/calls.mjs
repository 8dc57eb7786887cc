// Calls: create_call, call_status, the signalling steps and the free-form "event".
import { addNotice, MessageType } from './messages.mjs';
import { refuse, Result } from './requests.mjs';
import { GroupType } from './store.mjs';

const CallType = { private: 1, group: 2 };
const Status = { ended: 0, ongoing: 1, timeout: 2, failed: 3 };
const Answer = { accept: 1, reject: 2, timeout: 3, failed: 4 };
const ringingTime = 60e6;

const parties = (call) => [call.caller_uin, ...call.callee_uins];

function findCall(world, client, payload) {
  const id = payload.id('call_id');
  const call = world.store.calls.get(id) ?? refuse(Result.failed, `unknown call ${id}`);
  if (!parties(call).includes(client.uin)) refuse(Result.userNotFound, `not a party of call ${id}`);
  return call;
}

/** Ends a call and leaves a message about it in the conversation. */
function endCall(world, call, status) {
  if (call.call_status !== Status.ongoing) return;
  call.call_status = status;
  call.stopped_at = String(world.store.now());
  const group = world.store.groups.get(call.group_id);
  if (group) addNotice(world, group, call.caller_uin, MessageType.call, call);
}

/** Relays a step to the user that "receiver_uin" names. */
function relay(world, event, read) {
  return (client, payload) => {
    const call = findCall(world, client, payload);
    const receiver = payload.uin('receiver_uin');
    if (!parties(call).includes(receiver)) {
      refuse(Result.userNotFound, 'the receiver is not in the call');
    }
    const step = {
      group_id: call.group_id,
      call_id: call.call_id,
      sender_uin: payload.ownUin('sender_uin', client),
      receiver_uin: receiver,
      ...read(payload),
    };
    world.push([receiver], event, step, client);
    return { result: Result.ok };
  };
}

export const callRequests = (world) => ({
  create_call(client, payload) {
    const group = world.store.groupOf(payload.id('group_id'), client.uin);
    const caller = payload.ownUin('caller_uin', client);
    const named = payload.uins('callee_uins', []).filter((uin) => uin !== caller);
    const callees = named.length > 0 ? named : group.members.filter((uin) => uin !== caller);
    const mediaType = payload.integer('media_type', 0);
    const isGroup = group.type !== GroupType.private;
    const wantedId = payload.id('call_id', '');
    const isFree = wantedId !== '' && !world.store.calls.has(wantedId);
    if (![0, 1, 2].includes(mediaType)) refuse(Result.wrongType, `unknown media type ${mediaType}`);
    if (!callees.every((uin) => group.members.includes(uin)) || callees.length === 0) {
      refuse(Result.userNotFound, 'a callee is not a member of the conversation');
    }
    if (group.blocks.has(caller)) refuse(Result.failed, 'blocked in this conversation');

    const call = {
      call_id: isFree ? wantedId : world.store.nextId('call'),
      group_id: group.id,
      call_type: isGroup ? CallType.group : CallType.private,
      media_type: mediaType,
      call_status: Status.ongoing,
      caller_uin: caller,
      callee_uins: callees,
      accepted_uins: [],
      started_at: String(world.store.now()),
      stopped_at: '0',
      accepted_at: '0',
      connected_at: '0',
    };
    world.store.addCall(call);
    world.push(callees, 'start_call', { call }, client);
    return { result: Result.ok, call };
  },

  /** Ids are integers here. A call that nobody answers within a minute has timed out. */
  call_status(client, payload) {
    const call = findCall(world, client, payload);
    const isRinging = call.accepted_uins.length === 0;
    if (isRinging && world.store.now() - Number(call.started_at) > ringingTime) {
      endCall(world, call, Status.timeout);
    }
    return { result: Result.ok, status: call.call_status };
  },

  answer_call(client, payload) {
    const call = findCall(world, client, payload);
    const callee = payload.ownUin('callee_uin', client);
    const answer = payload.integer('answer');
    if (!call.callee_uins.includes(callee))
      refuse(Result.userNotFound, 'the caller does not answer');
    if (!Object.values(Answer).includes(answer))
      refuse(Result.wrongType, `unknown answer ${answer}`);
    if (call.call_status !== Status.ongoing) refuse(Result.failed, 'the call is over');
    const record = { group_id: call.group_id, call_id: call.call_id, callee_uin: callee, answer };
    world.push(parties(call), 'answer_call', record, client);
    if (answer === Answer.accept) {
      const time = String(world.store.now());
      if (!call.accepted_uins.includes(callee)) call.accepted_uins.push(callee);
      if (call.accepted_at === '0') Object.assign(call, { accepted_at: time, connected_at: time });
    } else if (call.call_type === CallType.private) {
      endCall(world, call, answer === Answer.timeout ? Status.timeout : Status.failed);
    }
    return { result: Result.ok };
  },

  /** The caller ends the call; a callee ends a private one and leaves a group call. */
  stop_call(client, payload) {
    const call = findCall(world, client, payload);
    const uin = payload.ownUin('uin', client);
    const record = { group_id: call.group_id, call_id: call.call_id, uin };
    world.push(parties(call), 'stop_call', record, client);
    call.accepted_uins = call.accepted_uins.filter((accepted) => accepted !== uin);
    if (uin === call.caller_uin || call.call_type === CallType.private) {
      endCall(world, call, Status.ended);
    }
    return { result: Result.ok };
  },

  ice_sdp: relay(world, 'ice_sdp', (payload) => ({
    type: payload.integer('type', 0),
    sdp: payload.text('sdp', ''),
  })),

  ice_candidate: relay(world, 'ice_candidate', (payload) => ({
    candidate: payload.text('candidate', ''),
    sdp_mid: payload.text('sdp_mid', ''),
    sdp_mline_index: payload.integer('sdp_mline_index', 0),
  })),

  call_event(client, payload) {
    const call = findCall(world, client, payload);
    const event = payload.integer('event', 0);
    const record = { group_id: call.group_id, call_id: call.call_id, event };
    world.push(parties(call), 'call_event', record, client);
    return { result: Result.ok };
  },

  /** Typing and custom events: to "receiver_uin" if given, else to the conversation. */
  event(client, payload) {
    const group = world.store.groupOf(payload.id('group_id'), client.uin);
    const receiver = payload.id('receiver_uin', '') && payload.uin('receiver_uin');
    if (receiver && !group.members.includes(receiver)) {
      refuse(Result.userNotFound, 'the receiver is no member');
    }
    const record = {
      group_id: group.id,
      call_id: payload.id('call_id', ''),
      sender_uin: payload.ownUin('sender_uin', client),
      receiver_uin: receiver,
      type: payload.integer('type', 0),
      data: payload.text('data', ''),
    };
    world.push(receiver ? [receiver] : group.members, 'event', record, client);
    return { result: Result.ok };
  },
});
