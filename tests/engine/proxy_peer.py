#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""proxy_peer.py USER PASSWORD: an HTTP proxy for CONNECT that wants these, byte for byte: the
daemons that are at hand take letters, digits and little else. Prints one JSON line when it is ready
and ends when its standard input closes."""

import asyncio
import base64
import json
import os
import sys

WANTED = b'Basic ' + base64.b64encode(f'{sys.argv[1]}:{sys.argv[2]}'.encode())


async def relay(reader, writer):
    try:
        while data := await reader.read(65536):
            writer.write(data)
            await writer.drain()
    except ConnectionError:
        pass
    finally:
        writer.close()


async def serve(reader, writer):
    head = (await reader.readuntil(b'\r\n\r\n')).split(b'\r\n')
    method, target, _ = head[0].split(b' ')
    headers = dict(line.split(b': ', 1) for line in head[1:] if line)
    if headers.get(b'Proxy-Authorization') != WANTED:
        writer.write(b'HTTP/1.1 407 No\r\nProxy-Authenticate: Basic realm="proxy"\r\n'
                     b'Content-Length: 0\r\nConnection: close\r\n\r\n')
        writer.close()
    elif method != b'CONNECT':
        writer.write(b'HTTP/1.1 405 No\r\nContent-Length: 0\r\nConnection: close\r\n\r\n')
        writer.close()
    else:
        host, port = target.decode().rsplit(':', 1)
        other_reader, other_writer = await asyncio.open_connection(host, int(port))
        writer.write(b'HTTP/1.1 200 Connected\r\n\r\n')
        await asyncio.gather(relay(reader, other_writer), relay(other_reader, writer))


async def main():
    server = await asyncio.start_server(serve, '127.0.0.1', 0)
    print(json.dumps({'port': server.sockets[0].getsockname()[1]}), flush=True)
    await asyncio.get_running_loop().run_in_executor(None, sys.stdin.read)
    os._exit(0)


asyncio.run(main())
