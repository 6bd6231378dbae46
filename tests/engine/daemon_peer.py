#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Runs one of the unpacked daemons on free ports of 127.0.0.1.

daemon_peer.py nginx FOLDER      TLS servers, each with a certificate of its own, made here:
                                   good        for localhost and 127.0.0.1, signed by ca.pem
                                   stranger    for another host, signed by ca.pem
                                   expired     until yesterday, signed by ca.pem
                                   wants_client  good, and wants a client certificate of ca.pem
                                 Each speaks HTTP/2 and HTTP/1.1 and answers the version spoken.
                                 FOLDER receives ca.pem, other-ca.pem, client.pem, client-key.pem
                                 (its password is "secret").
daemon_peer.py tinyproxy FOLDER USER PASSWORD
                                 a proxy that wants these, as they are

VARNEX_PEERS names the folder below which they were unpacked. Prints one JSON line with the ports
when they listen and ends when its standard input closes.
"""

import datetime
import ipaddress
import json
import os
import socket
import subprocess
import sys
import time

PEERS = os.environ['VARNEX_PEERS']


def free_ports(number):
    sockets = [socket.socket() for _ in range(number)]
    for one in sockets:
        one.bind(('127.0.0.1', 0))
    ports = [one.getsockname()[1] for one in sockets]
    for one in sockets:
        one.close()
    return ports


def listens(port):
    with socket.socket() as probe:
        return probe.connect_ex(('127.0.0.1', port)) == 0


def library_path():
    name = subprocess.run(['gcc', '-print-multiarch'], capture_output=True, text=True, check=False)
    return f'{PEERS}/usr/lib/{name.stdout.strip()}'


def run(command, ports):
    daemon = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              env={**os.environ, 'LD_LIBRARY_PATH': library_path()})
    try:
        deadline = time.monotonic() + 20
        while not all(listens(port) for port in ports.values()):
            if daemon.poll() is not None or time.monotonic() > deadline:
                sys.exit(f'{command[0]} does not listen')
            time.sleep(0.02)
        print(json.dumps(ports), flush=True)
        sys.stdin.read()
    finally:
        daemon.terminate()
        try:
            daemon.wait(10)
        except subprocess.TimeoutExpired:
            daemon.kill()


class Authority:
    def __init__(self, folder, name):
        from cryptography.hazmat.primitives.asymmetric import ec
        self.folder, self.name = folder, name
        self.new_key = lambda: ec.generate_private_key(ec.SECP256R1())
        self.key = self.new_key()
        self.write(f'{name}.pem', self.sign(name, self.key, None, 1))

    def sign(self, subject, key, names, days):
        from cryptography import x509
        from cryptography.hazmat.primitives import hashes
        name = lambda text: x509.Name([x509.NameAttribute(x509.NameOID.COMMON_NAME, text)])
        now = datetime.datetime.utcnow()
        builder = (x509.CertificateBuilder()
                   .subject_name(name(subject)).issuer_name(name(self.name))
                   .public_key(key.public_key()).serial_number(x509.random_serial_number())
                   .not_valid_before(now - datetime.timedelta(days=30))
                   .not_valid_after(now + datetime.timedelta(days=days))
                   .add_extension(x509.BasicConstraints(names is None, None), True))
        if names:
            builder = builder.add_extension(x509.SubjectAlternativeName(names), False)
        return builder.sign(self.key, hashes.SHA256())

    def write(self, file, certificate, key=None, password=None):
        from cryptography.hazmat.primitives import serialization as s
        secrecy = s.BestAvailableEncryption(password) if password else s.NoEncryption()
        with open(f'{self.folder}/{file}', 'wb') as out:
            if certificate is not None:
                out.write(certificate.public_bytes(s.Encoding.PEM))
            if key is not None:
                out.write(key.private_bytes(s.Encoding.PEM, s.PrivateFormat.PKCS8, secrecy))

    def issue(self, file, names, days=1):
        key = self.new_key()
        self.write(file, self.sign(file, key, names, days), key)

    def issue_client(self):
        key = self.new_key()
        self.write('client.pem', self.sign('client', key, [], 1))
        self.write('client-key.pem', None, key, b'secret')


def make_certificates(folder):
    from cryptography import x509
    authority = Authority(folder, 'ca')
    Authority(folder, 'other-ca')
    here = [x509.DNSName('localhost'), x509.IPAddress(ipaddress.ip_address('127.0.0.1'))]
    authority.issue('good', here)
    authority.issue('stranger', [x509.DNSName('other.example')])
    authority.issue('expired', here, days=-1)
    authority.issue_client()


def nginx_server(port, certificate, more=''):
    return f'''
    server {{
        listen 127.0.0.1:{port} ssl http2;
        ssl_certificate {certificate};
        ssl_certificate_key {certificate};
        {more}
        location / {{
            add_header X-Auth-Token good;
            return 200 $server_protocol;
        }}
    }}'''


def run_nginx(folder):
    make_certificates(folder)
    names = ['good', 'stranger', 'expired', 'wants_client']
    ports = dict(zip(names, free_ports(len(names))))
    servers = [nginx_server(ports[name], name) for name in names[:3]]
    servers.append(nginx_server(ports['wants_client'], 'good',
                                'ssl_client_certificate ca.pem; ssl_verify_client on;'))
    paths = '\n'.join(f'    {kind}_temp_path {folder}/{kind};'
                      for kind in ('client_body', 'proxy', 'fastcgi', 'uwsgi', 'scgi'))
    with open(f'{folder}/nginx.conf', 'w', encoding='ascii') as file:
        file.write(f'''
daemon off;
master_process off;
pid {folder}/nginx.pid;
error_log {folder}/error.log;
events {{ }}
http {{
    access_log off;
{paths}{''.join(servers)}
}}
''')
    run([f'{PEERS}/usr/sbin/nginx', '-p', folder, '-e', f'{folder}/error.log',
         '-c', f'{folder}/nginx.conf'], ports)


def run_tinyproxy(folder, user, password):
    ports = {'port': free_ports(1)[0]}
    with open(f'{folder}/tinyproxy.conf', 'w', encoding='ascii') as file:
        file.write(f'''Port {ports['port']}
Listen 127.0.0.1
Timeout 30
MaxClients 10
Allow 127.0.0.1
LogFile "{folder}/tinyproxy.log"
BasicAuth {user} {password}
''')
    run([f'{PEERS}/usr/bin/tinyproxy', '-d', '-c', f'{folder}/tinyproxy.conf'], ports)


{'nginx': run_nginx, 'tinyproxy': run_tinyproxy}[sys.argv[1]](*sys.argv[2:])
