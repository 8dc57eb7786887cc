#!/usr/bin/python3
"""Does as server.mjs does, but for villains and TLS, with another implementation of the protocol."""

import asyncio
import collections
import json
import sys

import engineio
import socketio
from aiohttp import web

options = json.loads(sys.argv[1])
answers, reports, held = {}, collections.defaultdict(list), []
released = asyncio.Event()
released.set()


def filled_in(items, payload):
    def fill(value):
        if "$binary" in value:
            return value["$binary"].encode()
        return payload[value["$payload"]] if "$payload" in value else value

    return json.loads(json.dumps(items), object_hook=fill)


class Connection(engineio.asyncio_socket.AsyncSocket):
    async def receive(self, pkt):
        name = engineio.packet.packet_names[pkt.packet_type]
        reports["packet"].append(name.lower() + str(pkt.data or ""))
        await super().receive(pkt)


class Server(socketio.AsyncServer):
    async def _handle_event_internal(self, server, sid, eio_sid, data, namespace, id):
        event, *items = data
        payload = items[0] if items and isinstance(items[0], dict) else {}
        if released.is_set():
            reports["event"].append([event, items, id is not None])
        chosen = [{"result": 0}] if payload.get("group_id") == "sentinel" else answers.get(event)
        if id is None or chosen is None:
            return
        held.append(event)
        await released.wait()
        held.remove(event)
        items = filled_in(chosen, payload)
        await self._send_packet(eio_sid, self.packet_class(3, items, namespace, id))


engineio.asyncio_server.asyncio_socket.AsyncSocket = Connection
milliseconds = options.get("server", {}).get("pingInterval", 25000)
io = Server(async_mode="aiohttp", ping_interval=milliseconds / 1000)


@io.on("connect", namespace="/data")
async def connect(sid, environ):
    reports["url"].append(environ["aiohttp.request"].path_qs)
    if options.get("refusing"):
        raise socketio.exceptions.ConnectionRefusedError("not authorized")


@io.on("disconnect", namespace="/data")
async def disconnect(sid):
    reports["disconnect"].append("client namespace disconnect")


async def push(event, *items):
    await io.emit(event, items, namespace="/data")


commands = {
    "answer": lambda told: answers.update({told["event"]: told["items"]}),
    "hold": lambda told: released.clear(),
    "held": lambda told: len(held),
    "release": lambda told: released.set(),
    "push": lambda told: asyncio.create_task(push(*filled_in(told["items"], {}))),
    "refuse": lambda told: options.update(refusing=told["on"]),
    "reports": lambda told: reports[told["of"]],
    "forget": lambda told: reports.clear(),
}


async def main():
    io.attach(app := web.Application())
    await (runner := web.AppRunner(app)).setup()
    site = web.TCPSite(runner, "127.0.0.1", 0)
    await site.start()
    print(site._server.sockets[0].getsockname()[1], flush=True)
    while line := await asyncio.to_thread(sys.stdin.readline):
        try:
            told = json.loads(line)
            said = commands[told["do"]](told)
        except Exception as error:
            said = {"refused": repr(error)}
        print(json.dumps(said, default=repr), flush=True)


asyncio.run(main())
