# SPDX-License-Identifier: Apache-2.0
"""The tool over IPMI: its arguments, and emulated BMCs with a file service on port 115.

To be run in tools/private-net, where that port is free.
"""

import contextlib
import hashlib
import itertools
import json
import os
import pathlib
import struct

import tool

KCS = os.environ.get("KEMFFDC_KCS", "")
PLAYED_TIME = os.environ.get("KEMFFDC_PLAYED_TIME", "")

USER, PASSWORD = "ffdc", "Gather-17"  # of the account that BMCs hand out
FOLDERS = {2: "/download/ffdc/", 3: "/download/ffdc/kem_dump/", 5: "/download/ffdc/kem_dump/"}

_hosts = itertools.count(2)  # 127.0.0.1 is left to a real service


def scenario(ipmi=None, sftp=None, **rest):
    """A BMC that has gathered at the first poll; `sftp` False: without a file service."""
    whole = {"ipmi": {"polls": 0, "credential": {"user": USER, "password": PASSWORD}, **(ipmi or {})}, **rest}
    if sftp is not False:
        whole["sftp"] = sftp or {}
    return whole


def fresh_address():
    number = next(_hosts)
    return f"127.0.{number // 250}.{number % 250 + 1}"


@contextlib.contextmanager
def started(what=None, address=None):
    bmc = tool.Bmc(what or scenario(), ["--bind", address or fresh_address()])
    try:
        yield bmc
    finally:
        bmc.stop()


def port_of(bmc):
    return bmc.ready["ipmi"]["port"]


def over_lan(command, bmc, *arguments):
    return [command, "--via", "ipmi", bmc.address, "--port", str(port_of(bmc)), "--user", bmc.user,
            "--password-file", "-", *arguments]


def environment(folder, preload=(), **variables):
    """Nothing of a run leaves `folder`; no device of this machine is touched."""
    libraries = [library for library in (KCS, *preload) if library]
    options = os.environ.get("ASAN_OPTIONS", "")
    return {
        "XDG_STATE_HOME": str(folder / "state-home"),
        "VARNEX_KNOWN_HOSTS": str(folder / "known_hosts"),
        "VARNEX_DMI_TABLE": str(folder / "no-table"),
        "EMULATED_KCS": "errno:2",
        "LD_PRELOAD": ":".join(libraries),
        "ASAN_OPTIONS": ":".join(filter(None, [options, "verify_asan_link_order=0"])),
        **variables,
    }


def in_band(bmc, folder):
    """This machine's own BMC: its device, and the network interface that leads to it."""
    device = folder / "net" / "usb0"
    (device / "device").mkdir(parents=True, exist_ok=True)
    (device / "address").write_text("02:00:00:00:00:01\n", encoding="ascii")
    (device / "operstate").write_text("up\n", encoding="ascii")
    # SMBIOS type 42: a USB network interface (version 2), and Redfish over IP behind it.
    usb = struct.pack("<BBHHB6sHHB", 4, 17, 0x04B3, 0x4010, 0, bytes.fromhex("020000000001"), 0, 0, 0)
    address = bytes(map(int, bmc.address.split("."))) + bytes(12)
    service = bytes(51) + b"\x01" + address + bytes(23)
    content = bytes([0x40, len(usb)]) + usb + bytes([1, 4, len(service)]) + service
    table = bytes([42, 4 + len(content), 1, 0]) + content + b"\0\0" + bytes([127, 4, 2, 0]) + b"\0\0"
    (folder / "table").write_bytes(table)
    return {"EMULATED_KCS": bmc.ready["ipmi"]["kcs"], "VARNEX_DMI_TABLE": str(folder / "table"),
            "VARNEX_NET_CLASS": str(folder / "net")}


def served(bmc, mode=2):
    """What a mode asks for: SHA-256 by name."""
    files = json.loads(pathlib.Path(bmc.ready["sftp"]["files"]).read_text(encoding="utf-8"))
    return {f["name"]: f["sha256"] for f in files[FOLDERS[mode]]
            if not f.get("folder") and (mode != 3 or f["name"].lower().endswith(".tzz"))}


def fetched(folder):
    return {path.name: hashlib.sha256(path.read_bytes()).hexdigest() for path in pathlib.Path(folder).iterdir()}


def requests(bmc, service):
    file = pathlib.Path(bmc.ready["requests"])
    lines = file.read_text(encoding="utf-8").splitlines() if file.exists() else []
    return [r for r in map(json.loads, lines) if r["service"] == service]


def secrets(bmc):
    """Everything that may stand nowhere: the passwords that were sent to the file service too."""
    sent = {r.get("password", "") for r in requests(bmc, "sftp")}
    return {secret for secret in {bmc.password, PASSWORD, *sent} if len(secret) > 3}
