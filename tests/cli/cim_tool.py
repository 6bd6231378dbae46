# SPDX-License-Identifier: Apache-2.0
"""The tool over CIM: its arguments, and the file stores that emulated BMCs upload to."""

import contextlib
import json
import os
import pathlib
import re
import socket
import subprocess
import time

import pytest

import tool

import warm_bmc

STORE_PASSWORD = 'a store\'s "wörd" \\ &<'


def port_of(bmc, plain=False):
    return bmc.ready["cim"]["port" if plain else "https_port"]


def connection(bmc, plain=False):
    return [
        "--via", "cim", bmc.address, "--port", str(port_of(bmc, plain)), "--user", bmc.user,
        "--password-file", "-", *(["--plain"] if plain else []),
    ]


def check(bmc, *arguments, plain=False):
    return ["check", *connection(bmc, plain), *arguments]


def collect(bmc, uri, *arguments, plain=False):
    return ["collect", *connection(bmc, plain), "--export-uri", uri, *arguments]


def requests(bmc, method=None):
    """What the CIM server was asked, by the value of the header CIMMethod."""
    file = pathlib.Path(bmc.ready["requests"])
    lines = file.read_text(encoding="utf-8").splitlines() if file.exists() else []
    found = [json.loads(line) for line in lines]
    return [r for r in found if r["service"] == "cim" and method in (None, r["headers"].get("CIMMethod"))]


def wait_for(bmc, method, count=1, seconds=20.0):
    """Until so many such requests have come in."""
    end = time.monotonic() + seconds * tool.SLOWNESS
    while len(requests(bmc, method)) < count:
        assert time.monotonic() < end, f"no {method} came in"
        time.sleep(0.02)


def parameter(request, name):
    """The value of a parameter of ExportData, still with its XML escapes."""
    found = re.search(rf'<PARAMVALUE NAME="{name}"[^>]*>\s*<VALUE>(.*?)</VALUE>', request["body"], re.DOTALL)
    assert found, f"{name} is not among the parameters: {request['body']}"
    return found[1]


def archives(bmc):
    """The bytes of each object's archive, in the order of the objects."""
    return [pathlib.Path(a["file"]).read_bytes() for a in bmc.ready["cim"]["archives"].values()]


def files_of(folder):
    """The bytes of each file below a folder, by name."""
    return {str(p.relative_to(folder)): p.read_bytes() for p in sorted(folder.rglob("*")) if p.is_file()}


class Store:
    """An SFTP file store: a process with one account, which sees one folder."""

    user = "up"
    password = STORE_PASSWORD

    def __init__(self, folder):
        self.folder = folder
        self.process = warm_bmc.start(
            ["--user", self.user, folder], {**tool.clean_environment(), "SFTP_STORE_PASSWORD": self.password},
            program=warm_bmc.STORE)
        line = self.process.stdout.readline()
        assert line, "the file store did not start"
        self.port = json.loads(line)["port"]

    def uri(self, path=""):
        return f"sftp://127.0.0.1:{self.port}/{path}"

    def account(self):
        """Options that name it; the password goes by the environment of secrets()."""
        return ["--export-user", self.user]

    def secrets(self, password=None):
        return {"KEMFFDC_EXPORT_PASSWORD": password or self.password}

    def stop(self):
        self.process.stdin.close()
        tool.await_end(self.process)
        self.process.stdout.close()


@contextlib.contextmanager
def tftp_store(folder):
    """atftpd out of the peers' folder; yields its port."""
    root = os.environ.get("VARNEX_PEERS")
    if not root:
        pytest.skip("VARNEX_PEERS is not set: the peers were not fetched")
    libraries = ":".join(str(path) for path in pathlib.Path(root, "usr/lib").glob("*-linux-gnu"))
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind(("127.0.0.1", 0))
        port = probe.getsockname()[1]
    # Started by root it would step down to an account that may not write in the test's folder.
    account = ["--user", "root", "--group", "root"] if os.geteuid() == 0 else []
    process = subprocess.Popen(
        [str(pathlib.Path(root, "usr/sbin/atftpd")), "--daemon", "--no-fork", "--port", str(port),
         "--bind-address", "127.0.0.1", *account, "--logfile", "-", str(folder)],
        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
        env={**tool.clean_environment(), "LD_LIBRARY_PATH": libraries})
    try:
        end = time.monotonic() + 10 * tool.SLOWNESS
        while f":{port:04X} " not in pathlib.Path("/proc/net/udp").read_text():
            assert process.poll() is None and time.monotonic() < end, "atftpd did not open its port"
            time.sleep(0.05)
        yield port
    finally:
        process.terminate()
        tool.await_end(process)
