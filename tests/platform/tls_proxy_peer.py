#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""A proxy that is spoken to over TLS and knows CONNECT alone. FOLDER takes its certificate (ca.pem).

Prints one JSON line when it is ready; appends a line for each tunnel to FOLDER/tunnels; ends when its
standard input closes.
"""

import argparse
import asyncio
import json
import ssl
import subprocess

from peer_life import end_with_input


async def carry(reader, writer):
    try:
        while data := await reader.read(65536):
            writer.write(data)
            await writer.drain()
    except (OSError, ssl.SSLError):
        pass
    writer.close()


async def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('--folder', required=True)
    folder = parser.parse_args().folder
    subprocess.run(['openssl', 'req', '-x509', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:P-256',
                    '-nodes', '-days', '1', '-subj', '/CN=localhost', '-addext',
                    'subjectAltName=DNS:localhost', '-keyout', f'{folder}/key.pem', '-out',
                    f'{folder}/ca.pem'], check=True, stderr=subprocess.DEVNULL)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(f'{folder}/ca.pem', f'{folder}/key.pem')

    async def serve(reader, writer):
        head = await reader.readuntil(b'\r\n\r\n')
        host, port = head.split(b' ')[1].decode().rsplit(':', 1)
        with open(f'{folder}/tunnels', 'a', encoding='ascii') as tunnels:
            tunnels.write(f'{host}:{port}\n')
        far_reader, far_writer = await asyncio.open_connection(host, int(port))
        writer.write(b'HTTP/1.1 200 OK\r\n\r\n')
        await asyncio.gather(carry(reader, far_writer), carry(far_reader, writer))

    server = await asyncio.start_server(serve, '127.0.0.1', 0, ssl=context)
    print(json.dumps({'port': server.sockets[0].getsockname()[1]}), flush=True)
    await asyncio.Event().wait()


end_with_input()
asyncio.run(main())
