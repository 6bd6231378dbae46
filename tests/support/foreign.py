# SPDX-License-Identifier: Apache-2.0
"""Strangers' servers out of the peers' folder: fwupd's Redfish service and OpenIPMI's BMC.

Neither knows of this system, so neither can export service data. What is missing is skipped, with
the reason that tools/fetch-peers gave.
"""

import contextlib
import os
import pathlib
import socket
import subprocess
import sys
import time

import pytest

REDFISH_USER, REDFISH_PASSWORD = "username2", "password2"  # they stand in the service's own source
REDFISH_UUID = "92384634-2938-2342-8820-489239905423"
IPMI_USER, IPMI_PASSWORD = REDFISH_USER, REDFISH_PASSWORD  # of one machine, as it were
IPMI_SUITE = 3  # the newest that it knows
IPMI_GUID = "a123456789abcdefa123456789abcdef"

_SECONDS = 20.0
_LAN = """name "foreign"
set_working_mc 0x20
  startlan 1
    addr 127.0.0.1 {port}
    priv_limit admin
    allowed_auths_callback none md2 md5 straight
    allowed_auths_user none md2 md5 straight
    allowed_auths_operator none md2 md5 straight
    allowed_auths_admin none md2 md5 straight
    guid {guid}
  endlan
  user 2 true "{user}" "{password}" admin 10 none md2 md5 straight
"""
_MACHINE = """mc_setbmc 0x20
mc_add 0x20 0 no-device-sdrs 0x23 9 8 0x9f 0x1291 0xf02 persist_sdr
sel_enable 0x20 1000 0x0a
mc_enable 0x20
"""


def peer_file(name):
    """A file below the peers' folder; the test is skipped where it is not."""
    root = os.environ.get("VARNEX_PEERS")
    if not root:
        pytest.skip("VARNEX_PEERS is not set: the peers were not fetched")
    file = pathlib.Path(root, name)
    if not file.exists():
        note = pathlib.Path(root, "not-to-be-had")
        pytest.skip(note.read_text(encoding="utf-8").strip() if note.exists() else f"the peers lack {name}")
    return file


@contextlib.contextmanager
def redfish_service(certificate, environment, port=0):
    """fwupd's Redfish service with a certificate (and its key) of the test's; yields its port."""
    application = peer_file("usr/share/fwupd/redfish.py")
    program = pathlib.Path(__file__).with_name("foreign_redfish.py")
    process = subprocess.Popen(
        [sys.executable, str(program), str(application), str(certificate), str(port)],
        stdin=subprocess.PIPE, stdout=subprocess.PIPE, env=environment, text=True)
    try:
        line = process.stdout.readline()
        assert line, "the foreign Redfish service did not start"
        yield int(line)
    finally:
        process.stdin.close()
        _end(process)
        process.stdout.close()


@contextlib.contextmanager
def ipmi_bmc(folder, environment, port=None):
    """OpenIPMI's ipmi_sim; yields its UDP port."""
    program = peer_file("usr/bin/ipmi_sim")
    libraries = ":".join(str(path) for path in pathlib.Path(os.environ["VARNEX_PEERS"], "usr/lib").glob("*-linux-gnu"))
    port = port or _free_udp_port()
    (folder / "lan.conf").write_text(
        _LAN.format(port=port, guid=IPMI_GUID, user=IPMI_USER, password=IPMI_PASSWORD), encoding="ascii")
    (folder / "machine.emu").write_text(_MACHINE, encoding="ascii")
    (folder / "state").mkdir()
    process = subprocess.Popen(
        [str(program), "-c", str(folder / "lan.conf"), "-f", str(folder / "machine.emu"),
         "-s", str(folder / "state"), "-n"],
        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
        env={**environment, "LD_LIBRARY_PATH": libraries})
    try:
        end = time.monotonic() + _SECONDS
        while f":{port:04X} " not in pathlib.Path("/proc/net/udp").read_text(encoding="ascii"):
            assert process.poll() is None and time.monotonic() < end, "ipmi_sim did not open its port"
            time.sleep(0.05)
        yield port
    finally:
        process.terminate()
        _end(process)


def _free_udp_port():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def _end(process):
    try:
        process.wait(10)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()
