#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""An SFTP server for the folder ROOT, with a few names that make it misbehave.

cut*        half of the file, then the connection is cut
stall*      half of the file, then silence
hang*       opening it is never answered
closed*     may not be opened
broken*     opens and cannot be read
small*      announces half of its size
large*      announces twice its size
/hostile/   lists the names in the file NAMES: a JSON list, one character a byte
/endless/   lists more than anybody has
/silent/    listing it is never answered

Host keys are made anew unless KEY exists, which is then used and else written. Prints one JSON line
when it is ready; ends when its standard input closes.
"""

import argparse
import asyncio
import json
import os
import warnings

warnings.simplefilter('ignore')  # about ciphers that nobody here uses

import asyncssh  # noqa: E402

from peer_life import end_with_input  # noqa: E402


class Files(asyncssh.SFTPServer):
    options = None

    def __init__(self, channel):
        super().__init__(channel, chroot=self.options.root.encode())

    def open(self, path, pflags, attrs):
        if os.path.basename(path).startswith(b'closed'):
            raise asyncssh.SFTPPermissionDenied('closed')
        if os.path.basename(path).startswith(b'hang'):
            return asyncio.sleep(3600)
        return super().open(path, pflags, attrs)

    async def read(self, file_obj, offset, size):
        name = os.path.basename(os.fsdecode(file_obj.name))
        half = os.fstat(file_obj.fileno()).st_size // 2
        if name.startswith('broken'):
            raise asyncssh.SFTPFailure('broken')
        if name.startswith('cut') and offset + size > half:
            self.connection.abort()
            raise asyncssh.SFTPConnectionLost('cut')
        if name.startswith('stall') and offset + size > half:
            await asyncio.sleep(3600)
        return super().read(file_obj, offset, size)

    def stat(self, path):
        attrs = super().stat(path)
        name = os.path.basename(path)
        size = attrs.st_size if isinstance(attrs, os.stat_result) else attrs.size
        if name.startswith((b'small', b'large')):
            return asyncssh.SFTPAttrs(
                size=size // 2 if name.startswith(b'small') else size * 2, permissions=0o100644)
        return attrs

    def listdir(self, path):
        if path.rstrip(b'/') == b'/silent':
            return asyncio.sleep(3600)
        if path.rstrip(b'/') == b'/endless':
            name = asyncssh.SFTPName(b'x' * 200, attrs=asyncssh.SFTPAttrs(permissions=0o100644))
            return [name] * 200000
        if path.rstrip(b'/') != b'/hostile':
            return super().listdir(path)
        with open(self.options.names, encoding='utf-8') as file:
            names = json.load(file)
        return [asyncssh.SFTPName(name.encode('latin-1'),
                                  attrs=asyncssh.SFTPAttrs(permissions=0o100644))
                for name in names]


class Login(asyncssh.SSHServer):
    options = None

    def begin_auth(self, username):
        return True

    def password_auth_supported(self):
        return not self.options.no_password

    def kbdint_auth_supported(self):
        return False

    def public_key_auth_supported(self):
        return True  # so that a client that offers keys is seen

    def validate_public_key(self, username, key):
        with open(self.options.root + '/offered-key', 'w', encoding='ascii'):
            pass
        return False

    def validate_password(self, username, password):
        return username == self.options.user and password == self.options.password


def host_key(options):
    if options.key and os.path.exists(options.key):
        return asyncssh.read_private_key(options.key)
    key = asyncssh.generate_private_key(options.key_type)
    if options.key:
        key.write_private_key(options.key)
    return key


async def serve(options):
    keys = [host_key(options)]
    if options.second_key_type:
        keys.append(asyncssh.generate_private_key(options.second_key_type))
    server = await asyncssh.create_server(
        Login, options.bind, options.port, server_host_keys=keys, sftp_factory=Files, sftp_version=3,
        login_timeout=20, reuse_address=True)
    print(json.dumps({'port': server.sockets[0].getsockname()[1],
                      'fingerprint': keys[0].get_fingerprint(),
                      'public': keys[0].export_public_key().decode().strip()}), flush=True)
    await asyncio.Event().wait()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('--root', required=True)
    parser.add_argument('--bind', default='127.0.0.1')
    parser.add_argument('--port', type=int, default=0)
    parser.add_argument('--user', default='admin')
    parser.add_argument('--password', default='secret')
    parser.add_argument('--no-password', action='store_true', help='no login by password')
    parser.add_argument('--key', help='file of the host key')
    parser.add_argument('--key-type', default='ssh-ed25519')
    parser.add_argument('--second-key-type')
    parser.add_argument('--names', help='file of the names in /hostile/')
    options = parser.parse_args()
    Files.options = Login.options = options
    end_with_input()
    asyncio.run(serve(options))


main()
