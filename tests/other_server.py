#!/usr/bin/python3
"""Does as server.mjs does, but not for TLS or hostile servers, with another implementation of the
protocol."""

import asyncio
import collections
import json
import sys

import socketio
from aiohttp import web

options = json.loads(sys.argv[1])
answers, reports = {}, collections.defaultdict(list)


def filled_in(items):
    def fill(value):
        return value["$binary"].encode() if "$binary" in value else value

    return json.loads(json.dumps(items), object_hook=fill)


class Server(socketio.AsyncServer):
    async def _handle_event_internal(self, server, sid, eio_sid, data, namespace, id):
        event, *items = data
        payload = items[0] if items and isinstance(items[0], dict) else {}
        reports["event"].append([event, items, id is not None])
        chosen = [{"result": 0}] if payload.get("group_id") == "sentinel" else answers.get(event)
        if id is None or chosen is None:
            return
        items = filled_in(chosen)
        await self._send_packet(eio_sid, self.packet_class(3, items, namespace, id))


io = Server(async_mode="aiohttp")


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
    "push": lambda told: asyncio.create_task(push(*filled_in(told["items"]))),
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
