# SPDX-License-Identifier: Apache-2.0
"""Where the work is asked for: the same for us and for the peers."""

import contextlib
import datetime
import ipaddress
import json
import os
import pathlib
import select
import socket
import subprocess
import threading
import time

from cryptography import x509
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.hazmat.primitives.asymmetric import ec

from measure.machine import with_libraries

ROOT = pathlib.Path(__file__).resolve().parents[2]
MIB = 1024 * 1024
START_SECONDS = 60
USER, PASSWORD = "ffdc", "bench-secret"

# Two services: bare answers for the comparison with a loop, and a BMC whose archive alone is nginx's
# own, because the emulated BMC would be what is measured.
NGINX = """
daemon off;
master_process off;
pid {folder}/nginx.pid;
error_log {folder}/error.log;
events {{ }}
http {{
    access_log off;
    client_body_temp_path {folder}/body;
    proxy_temp_path {folder}/proxy;
    fastcgi_temp_path {folder}/fastcgi;
    uwsgi_temp_path {folder}/uwsgi;
    scgi_temp_path {folder}/scgi;
    keepalive_requests 1000000;
    default_type application/json;
    ssl_certificate {folder}/cert.pem;
    ssl_certificate_key {folder}/key.pem;
    server {{
        listen 127.0.0.1:{port} ssl;
        location = /redfish/v1/ {{
            return 200 '{{"RedfishVersion": "1.15.0"}}';
        }}
        location = /redfish/v1/SessionService/Sessions {{
            add_header X-Auth-Token 0123456789abcdef always;
            return 201 '{{}}';
        }}
        location /archives/ {{
            root {folder};
        }}
    }}
    server {{
        listen 127.0.0.1:{bmc_port} ssl;
        location / {{
            proxy_set_header Host $http_host;
            proxy_pass http://127.0.0.1:{emulated};
        }}
        location /download/ffdc/ {{
            alias {folder}/behind/bmc/archives/;
        }}
    }}
}}
"""


class NotHere(Exception):
    """What cannot be measured on this machine, and why."""


@contextlib.contextmanager
def helper(command, what, **more):
    """A program that prints a line when it is ready and ends when its input closes."""
    with subprocess.Popen([str(word) for word in command], stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE, text=True, **more) as process:
        try:
            readable = select.select([process.stdout], [], [], START_SECONDS)[0]
            line = process.stdout.readline().strip() if readable else ""
            if not line:
                raise NotHere(f"{what} did not start")
            yield line
        finally:
            process.stdin.close()


def free_port():
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        return listener.getsockname()[1]


def write_certificate(folder):
    key = ec.generate_private_key(ec.SECP256R1())
    name = x509.Name([x509.NameAttribute(x509.NameOID.COMMON_NAME, "127.0.0.1")])
    now = datetime.datetime.utcnow()
    certificate = (x509.CertificateBuilder().subject_name(name).issuer_name(name)
                   .public_key(key.public_key()).serial_number(x509.random_serial_number())
                   .not_valid_before(now - datetime.timedelta(days=1))
                   .not_valid_after(now + datetime.timedelta(days=1))
                   .add_extension(x509.SubjectAlternativeName(
                       [x509.IPAddress(ipaddress.ip_address("127.0.0.1"))]), critical=False)
                   .sign(key, hashes.SHA256()))
    (folder / "cert.pem").write_bytes(certificate.public_bytes(serialization.Encoding.PEM))
    (folder / "key.pem").write_bytes(key.private_bytes(
        serialization.Encoding.PEM, serialization.PrivateFormat.PKCS8,
        serialization.NoEncryption()))


def wait_for_port(port, process):
    deadline = time.monotonic() + START_SECONDS
    while time.monotonic() < deadline and process.poll() is None:
        with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", port), 1):
            return
        time.sleep(0.05)
    raise NotHere("nginx did not start")


def noise(path, size):
    """A file of random bytes, of which one mebibyte is repeated: nothing on the way compresses."""
    block = os.urandom(MIB)
    with open(path, "wb") as file:
        for _ in range(size // MIB):
            file.write(block)
        file.write(block[:size % MIB])
    path.chmod(0o644)


@contextlib.contextmanager
def emulated_bmc(folder, scenario, *words):
    folder.mkdir(exist_ok=True)
    (folder / "scenario.yaml").write_text(scenario, encoding="utf-8")
    command = [ROOT / "emulator" / "emulated-bmc", "--scenario", folder / "scenario.yaml",
               "--state-dir", folder / "bmc", *words]
    with helper(command, "the emulated BMC") as line:
        yield json.loads(line)


class Web:
    """nginx, with archives of some sizes at /archives/NAME."""

    def __init__(self, folder, port, bmc_port, bmc):
        self.folder, self.port, self.bmc_port, self.bmc = folder, port, bmc_port, bmc

    def url(self, path):
        return f"https://127.0.0.1:{self.port}{path}"


@contextlib.contextmanager
def web(options, folder, sizes, exported=None):
    """`sizes`: MiB by the archive's name. `exported`: name and MiB of what the BMC exports."""
    program = options.peers / "usr/sbin/nginx"
    if not program.exists():
        raise NotHere("no nginx: tools/fetch-peers was not run")
    write_certificate(folder)
    (folder / "archives").mkdir()
    for name, mebibytes in sizes.items():
        noise(folder / "archives" / name, mebibytes * MIB)
    port, bmc_port = free_port(), free_port()
    name, mebibytes = exported or ("small.tar.gz", 1)
    scenario = ("{user: admin, password: secret, redfish: {task_states: [Completed], "
                f"archive: {{name: {name}, size: {mebibytes * MIB}}}}}}}")
    with emulated_bmc(folder / "behind", scenario, "--redfish-plain") as bmc:
        conf = NGINX.format(folder=folder, port=port, bmc_port=bmc_port,
                            emulated=bmc["redfish"]["port"])
        if os.geteuid() == 0:
            conf = "user root;\n" + conf
        (folder / "nginx.conf").write_text(conf, encoding="utf-8")
        with subprocess.Popen([program, "-p", folder, "-c", folder / "nginx.conf",
                               "-e", folder / "error.log"],
                              env=with_libraries(program)) as process:
            try:
                wait_for_port(port, process)
                yield Web(folder, port, bmc_port, bmc)
            finally:
                process.terminate()


@contextlib.contextmanager
def sshd(options, served, port):
    """OpenSSH's server with the folder `served` as /download/ffdc."""
    command = [ROOT / "tests" / "support" / "openssh_sftp.py", "--address", "127.0.0.1",
               "--port", port, "--user", USER, "--password", PASSWORD, f"/download/ffdc={served}"]
    with helper(command, "sshd", env={**os.environ, "VARNEX_PEERS": str(options.peers)}) as line:
        facts = json.loads(line)
        if "skip" in facts:
            raise NotHere(facts["skip"])
        yield port


def late(options, port, one_way_milliseconds):
    """A port that leads to `port`, every byte so much later."""
    relay = [options.build / "bin" / "bench_sftp_relay", port, one_way_milliseconds]
    return helper(relay, "the relay")


def _request(connection):
    """The next request's message id; nothing at the end."""
    received = b""
    while True:
        piece = connection.recv(65536)
        if not piece:
            return b""
        received += piece
        head, ended, body = received.partition(b"\r\n\r\n")
        length = head.lower().partition(b"content-length:")[2].split(b"\r\n")[0]
        if ended and len(body) >= int(length or 0):
            return body.partition(b'<MESSAGE ID="')[2].partition(b'"')[0] or b"0"


def _serve(listener, instances):
    with contextlib.suppress(OSError):
        while True:
            connection = listener.accept()[0]
            with connection, contextlib.suppress(OSError):
                while message := _request(connection):
                    body = instances.replace(b"@ID@", message, 1)
                    connection.sendall(
                        b"HTTP/1.1 200 OK\r\nContent-Type: application/xml; charset=utf-8\r\n"
                        b"Content-Length: %d\r\nCIMOperation: MethodResponse\r\n\r\n" % len(body))
                    connection.sendall(body)


def cim_instances(count):
    """An answer to EnumerateInstances, as large for each instance as those of a BMC."""
    properties = "".join(
        f'<PROPERTY NAME="Property{number}" TYPE="string">\n'
        f"<VALUE>value {number} of some length</VALUE>\n</PROPERTY>\n" for number in range(8))
    one = ('<VALUE.NAMEDINSTANCE>\n<INSTANCENAME CLASSNAME="ZOR_FFDCData">\n'
           '<KEYBINDING NAME="InstanceID">\n<KEYVALUE VALUETYPE="string">ZOR:FFDC:{0}</KEYVALUE>\n'
           '</KEYBINDING>\n</INSTANCENAME>\n<INSTANCE CLASSNAME="ZOR_FFDCData">\n'
           f'{properties}</INSTANCE>\n</VALUE.NAMEDINSTANCE>\n')
    return ('<?xml version="1.0" encoding="utf-8" ?>\n<CIM CIMVERSION="2.0" DTDVERSION="2.0">\n'
            '<MESSAGE ID="@ID@" PROTOCOLVERSION="1.0">\n<SIMPLERSP>\n'
            '<IMETHODRESPONSE NAME="EnumerateInstances">\n<IRETURNVALUE>\n'
            + "".join(one.format(number) for number in range(count))
            + "</IRETURNVALUE>\n</IMETHODRESPONSE>\n</SIMPLERSP>\n</MESSAGE>\n</CIM>\n"
            ).encode("ascii")


@contextlib.contextmanager
def cim_server(instances):
    """A CIM server that gives the same instances to every request."""
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        listener.listen(8)
        threading.Thread(target=_serve, args=(listener, instances), daemon=True).start()
        yield listener.getsockname()[1]
        listener.shutdown(socket.SHUT_RDWR)
