# SPDX-License-Identifier: Apache-2.0
"""The file service, asked by OpenSSH's client, curl and asyncssh."""

from __future__ import annotations

import asyncio
import hashlib
import json
import os
import re
import shutil
import subprocess
import sys
import time
import warnings
from pathlib import Path
from typing import Any, Awaitable, Callable

import pytest

with warnings.catch_warnings():
    warnings.simplefilter("ignore")
    import asyncssh

from conftest import EMULATOR, Bmc, Starter, clean_environment, curl, outcome

sys.path.insert(0, str(EMULATOR))
from bmc.main import SECTIONS  # noqa: E402
from bmc.scenario import ScenarioError, load  # noqa: E402
from bmc.sftp.settings import FileSettings, read_sftp  # noqa: E402

FFDC, KEM_DUMP = "/download/ffdc/", "/download/ffdc/kem_dump/"
DOCUMENT = EMULATOR.parent / "docs" / "emulator.md"
SECONDS = 30


def serving(start: Starter, sftp: Any = None, **more: Any) -> Bmc:
    """A BMC with its files on a free port."""
    scenario = {"user": "admin", "password": "secret", "sftp": sftp or {}, **more}
    return start(scenario, "--sftp-port", "0")


def port(bmc: Bmc) -> int:
    return bmc.ready["sftp"]["port"]


def files(bmc: Bmc) -> dict[str, list[dict[str, Any]]]:
    return json.loads(Path(bmc.ready["sftp"]["files"]).read_text())


def records(bmc: Bmc, operation: str) -> list[dict[str, Any]]:
    """Without what is the same in all of them."""
    return [
        {k: v for k, v in line.items() if k not in ("service", "operation", "connection")}
        for line in bmc.requests() if (line["service"], line.get("operation")) == ("sftp", operation)
    ]


def ask(bmc: Bmc, work: Callable[[asyncssh.SFTPClient], Awaitable[Any]], user="admin", password="secret") -> Any:
    async def run() -> Any:
        async with asyncssh.connect(
            bmc.address, port(bmc), username=user, password=password, known_hosts=None, config=[],
            client_keys=None, agent_path=None,
        ) as connection, connection.start_sftp_client() as client:
            return await work(client)

    return asyncio.run(asyncio.wait_for(run(), SECONDS))


def names(bmc: Bmc, folder: str = FFDC, **account: str) -> list[str]:
    """As listed, without the dots, which are checked."""
    listed = ask(bmc, lambda client: client.listdir(folder), **account)
    assert listed[:2] == [".", ".."]
    return listed[2:]


def fetch(bmc: Bmc, path: str, *options: str, password: str = "secret") -> subprocess.CompletedProcess:
    url = f"sftp://127.0.0.1:{port(bmc)}{path}"
    return curl("--path-as-is", "--user", f"admin:{password}", *options, url)


def test_both_folders_hold_archives_that_unpack(start: Starter, tmp_path: Path) -> None:
    bmc = serving(start)

    for folder in (FFDC, KEM_DUMP):
        described = files(bmc)[folder]
        assert names(bmc, folder) == [file["name"] for file in described]
        whole = [file for file in described if not file.get("folder")]
        assert {Path(file["name"]).suffix for file in whole} == {".tgz", ".tzz", ".log"}
        for file in whole:
            data = fetch(bmc, folder + file["name"]).stdout
            assert (len(data), hashlib.sha256(data).hexdigest()) == (file["size"], file["sha256"])
            if not file["name"].endswith(".log"):
                (tmp_path / "x").write_bytes(data)
                listing = subprocess.run(["tar", "tzf", tmp_path / "x"], capture_output=True, check=True)
                assert b"ffdc/manifest.json\n" in listing.stdout


def test_folders_are_listed_in_the_folders_above_them(start: Starter) -> None:
    bmc = serving(start)

    assert [names(bmc, folder) for folder in ("/", "/download/")] == [["download"], ["ffdc"]]
    assert names(bmc, FFDC)[-1] == "kem_dump"
    assert "kem_dump" not in names(serving(start, {"files": {KEM_DUMP: None}}), FFDC)
    assert fetch(bmc, FFDC + "kem_dump").returncode == 79


def test_openssh_walks_and_fetches(start: Starter, tmp_path: Path) -> None:
    if shutil.which("sftp") is None or shutil.which("setsid") is None:
        pytest.skip("OpenSSH's client is not installed")
    bmc = serving(start, {"files": {FFDC: ["a b.log", {"name": "x.tgz", "size": 3000000}]}})
    (tmp_path / "answer").write_text("#!/bin/sh\necho secret\n")
    (tmp_path / "answer").chmod(0o700)
    environment = {**clean_environment(), "SSH_ASKPASS": str(tmp_path / "answer"),
                   "SSH_ASKPASS_REQUIRE": "force", "DISPLAY": ":0"}
    command = ["setsid", "-w", "sftp", "-F", "none", "-P", str(port(bmc)), "-o", f"UserKnownHostsFile={tmp_path}/known",
               "-o", "StrictHostKeyChecking=accept-new", "-o", "PreferredAuthentications=password", "admin@127.0.0.1"]
    orders = f'cd {FFDC}\nls -l\nget "a b.log" {tmp_path}/a\nget x.tgz {tmp_path}/x\nput {tmp_path}/answer new\n'
    run = subprocess.run(command, input=orders, capture_output=True, text=True, timeout=SECONDS, env=environment)

    assert re.search(r"^-rw-r----- .* 3000000 .* x\.tgz$", run.stdout, re.MULTILINE), run.stderr
    for name, file in zip("ax", files(bmc)[FFDC]):
        assert (tmp_path / name).read_bytes() == Path(file["file"]).read_bytes()
    assert "Permission denied" in run.stderr
    fingerprint = subprocess.run(["ssh-keygen", "-l", "-f", tmp_path / "known"], capture_output=True, text=True)
    assert bmc.ready["sftp"]["fingerprint"] in fingerprint.stdout


def test_who_is_let_in(start: Starter) -> None:
    credential = {"credential": {"user": "ffdc", "password": "p:a s%"}}
    open_to_both = serving(start, ipmi=credential)
    assert names(open_to_both) and names(open_to_both, user="ffdc", password="p:a s%")
    own_only = serving(start, {"accounts": ["bmc"]}, ipmi=credential)
    assert names(own_only)
    with pytest.raises(asyncssh.PermissionDenied):
        names(own_only, user="ffdc", password="p:a s%")
    other = serving(start, {"accounts": [{"user": "x", "password": "y"}]})
    assert names(other, user="x", password="y")
    with pytest.raises(asyncssh.PermissionDenied):
        names(other)

    assert records(own_only, "login") == [
        {"user": "admin", "password": "secret", "accepted": True},
        {"user": "ffdc", "password": "p:a s%", "accepted": False},
    ]


def test_nobody_is_let_in_where_no_account_is(start: Starter) -> None:
    assert fetch(serving(start, {"accounts": []}), FFDC).returncode == 67


def test_odd_names_are_listed_as_they_are_and_can_be_had(start: Starter, tmp_path: Path) -> None:
    odd = ["a b %41 #?.log", "new\nline", "-rf", "../x", "/etc/x", "ä", "*"]
    bmc = serving(start, {"files": {KEM_DUMP: None, FFDC: [{"name": name, "text": name} for name in odd]}})

    assert names(bmc) == odd

    async def read_all(client: asyncssh.SFTPClient) -> list[str]:
        return [await (await client.open(FFDC + name)).read() for name in odd]

    assert ask(bmc, read_all) == odd
    assert records(bmc, "open") == [{"path": FFDC + name, "outcome": "ok"} for name in odd]


def test_names_need_not_be_utf8(start: Starter) -> None:
    bmc = serving(start, {"files": {KEM_DUMP: None, FFDC: [b"\xff\xfe"]}})

    assert ask(bmc, lambda client: client.listdir(FFDC.encode()))[2:] == [b"\xff\xfe"]


def test_ten_thousand_names(start: Starter) -> None:
    bmc = serving(start, {"files": {FFDC: [{"name": "f{n}.log", "count": 10000, "text": "x"}]}})

    listed = names(bmc)
    assert (len(listed), listed[0], listed[-2:]) == (10001, "f00001.log", ["f10000.log", "kem_dump"])
    assert fetch(bmc, FFDC + "f04711.log").stdout == b"x"


@pytest.mark.parametrize("folder, listed", [(None, None), ([], [])])
def test_a_folder_can_be_missing_or_empty(start: Starter, folder: Any, listed: Any) -> None:
    bmc = serving(start, {"files": {FFDC: folder}})

    if listed is None:
        # kem_dump stays, and so does the way to it
        assert fetch(serving(start, {"files": {FFDC: None, KEM_DUMP: None}}), FFDC).returncode == 78
    else:
        assert names(bmc) == ["kem_dump"]
    assert names(bmc, KEM_DUMP)


def test_a_folder_among_the_names_is_one(start: Starter) -> None:
    bmc = serving(start, {"files": {FFDC: ["a.log", {"name": "sub", "folder": True}]}})

    run = fetch(bmc, FFDC)
    assert re.search(rb"^drwx.* sub$", run.stdout, re.MULTILINE)
    assert fetch(bmc, FFDC + "sub").returncode == 79
    assert names(bmc, FFDC + "sub") == []


@pytest.mark.parametrize("answer, code", [
    ({"error": "no such file"}, 78), ({"error": "permission denied"}, 9), ({"error": "failure"}, 79),
    ({"cut": True}, 79), ({"cut_after": 0}, 79),
])
def test_opening_can_fail(start: Starter, answer: dict[str, Any], code: int) -> None:
    bmc = serving(start, {"files": {FFDC: ["a.tgz", "b.tgz"]}, "answers": {f"open {FFDC}a.tgz": [answer]}})

    assert fetch(bmc, FFDC + "a.tgz").returncode == code
    assert fetch(bmc, FFDC + "b.tgz").returncode == 0
    assert fetch(bmc, FFDC + "a.tgz").returncode == 0


def test_a_file_can_be_cut_in_the_middle(start: Starter, tmp_path: Path) -> None:
    bmc = serving(start, {"files": {FFDC: [{"name": "a.tgz", "size": 1000000}]},
                          "answers": {"open *.tgz": {"cut_after": 300000}}})

    run = fetch(bmc, FFDC + "a.tgz", "-o", str(tmp_path / "a"))

    assert run.returncode == 79
    whole = Path(files(bmc)[FFDC][0]["file"]).read_bytes()
    got = (tmp_path / "a").read_bytes()
    assert 0 < len(got) <= 300000 and whole.startswith(got)


def test_a_file_can_stall(start: Starter, tmp_path: Path) -> None:
    bmc = serving(start, {"files": {FFDC: [{"name": "a.tgz", "size": 100000}]},
                          "answers": {"open": {"hang_after": 50000}}})

    run = fetch(bmc, FFDC + "a.tgz", "-o", str(tmp_path / "a"), "--speed-limit", "30", "--speed-time", "2")

    assert run.returncode == 28
    assert (tmp_path / "a").stat().st_size == 50000


def test_a_file_can_be_slow(start: Starter) -> None:
    bmc = serving(start, {"files": {FFDC: [{"name": "a.tgz", "size": 100000}]},
                          "answers": {"open": {"rate": 100000}}})
    begin = time.monotonic()

    assert len(fetch(bmc, FFDC + "a.tgz").stdout) == 100000
    assert time.monotonic() - begin >= 0.9


def test_logins_and_listings_are_scripted_too(start: Starter) -> None:
    bmc = serving(start, {"answers": {
        "login": [{"refuse": True}],
        "list": [{}, {"cut": True}],
        f"list {FFDC}": [{"error": "permission denied"}],
    }})

    codes = [fetch(bmc, FFDC).returncode for _ in range(4)]

    assert codes[:3] == [67, 9, 0]
    assert codes[3] not in (0, 9, 67)
    assert fetch(bmc, FFDC).returncode == 0
    assert [line["outcome"] for line in records(bmc, "list")] == ["permission denied", "ok", "none", "ok"]


def test_a_listing_can_hang(start: Starter) -> None:
    bmc = serving(start, {"answers": {"list": {"hang": True}}})

    assert fetch(bmc, FFDC, "--max-time", "2").returncode == 28


def test_a_silent_port_is_open_and_says_nothing(start: Starter) -> None:
    bmc = serving(start, {"silent": True})

    assert bmc.ready["sftp"]["fingerprint"] is None
    assert fetch(bmc, FFDC, "--connect-timeout", "2").returncode == 28


def test_nothing_can_be_written(start: Starter, tmp_path: Path) -> None:
    bmc = serving(start)
    (tmp_path / "new").write_text("x")

    assert fetch(bmc, FFDC, "--upload-file", str(tmp_path / "new")).returncode in (9, 79)
    for order in (f"rm {FFDC}x", f"mkdir {FFDC}d", f"rename {FFDC}x {FFDC}y", f"chmod 600 {FFDC}x"):
        assert fetch(bmc, FFDC, "--quote", order).returncode == 21, order
    assert len(names(bmc)) == 4


def test_the_host_key_is_kept_with_the_state(start: Starter, tmp_path: Path) -> None:
    first = start({"sftp": {}}, "--sftp-port", "0", "--state-dir", str(tmp_path / "a"))
    first.stop()
    again = start({"sftp": {}}, "--sftp-port", "0", "--state-dir", str(tmp_path / "a"))
    other = start({"sftp": {}}, "--sftp-port", "0", "--state-dir", str(tmp_path / "b"))

    prints = [bmc.ready["sftp"]["fingerprint"] for bmc in (first, again, other)]
    assert prints[0] == prints[1] != prints[2]
    assert (tmp_path / "a" / "ssh_host_key").stat().st_mode & 0o777 == 0o600


def test_without_a_section_or_an_option_there_is_no_service(start: Starter) -> None:
    assert "sftp" not in start().ready
    assert "sftp" not in start({"ipmi": {"polls": 1}}).ready
    assert start(None, "--sftp-port", "0").ready["sftp"]["port"] > 0


def test_a_port_that_is_taken_is_told(start: Starter) -> None:
    bmc = serving(start)
    run = outcome("--sftp-port", str(port(bmc)))

    assert run.returncode == 1
    assert run.stderr.endswith(f"SFTP on 127.0.0.1 port {port(bmc)}: Address already in use\n")


PRIVATE = EMULATOR.parent / "tools" / "private-net"


def in_private_net(*command: str) -> subprocess.CompletedProcess:
    run = subprocess.run([str(PRIVATE), *command], capture_output=True, text=True, timeout=120,
                         env=clean_environment())
    if run.returncode == 77:
        pytest.skip(run.stderr.strip())
    return run


def test_the_port_is_115_for_each_of_several_bmcs() -> None:
    script = Path(__file__).with_name("on_port_115.py")
    run = in_private_net(sys.executable, "-B", str(script), "127.0.0.1", "127.0.0.2", "127.0.0.16", "::1")

    assert run.stdout.splitlines() == ["127.0.0.1 115 0", "127.0.0.2 115 0", "127.0.0.16 115 0", "::1 115 0"], run.stderr


def read(text: str, start: Starter) -> Any:
    return load(start.scenario_file(text), {"sftp": read_sftp}).sections["sftp"]


@pytest.mark.parametrize("text, complaint", [
    ("sftp: {port: 115}", "sftp.port: unknown member; allowed: accounts, files, silent, answers"),
    ("sftp: {accounts: [me]}", "sftp.accounts[0]: unknown value 'me'; allowed: credential, bmc"),
    ("sftp: {files: {/download: []}}", 'sftp.files."/download": must read "/folder/", with a slash at both ends'),
    ("sftp: {files: {/a/: [{size: 1}]}}", 'sftp.files."/a/"[0]: name is missing'),
    ("sftp: {files: {/a/: [{name: x, size: 1, text: y}]}}", 'sftp.files."/a/"[0].text: there is size already'),
    ("sftp: {files: {/a/: [{name: x, count: 2}]}}", 'sftp.files."/a/"[0].name: must hold {n}, the place of the number, where there is a count'),
    ("sftp: {files: {/a/: [7]}}", 'sftp.files."/a/"[0]: must be a file\'s name, not the int 7'),
    ("sftp: {answers: {read: []}}", 'sftp.answers.read: must read "login", "list", "open", "list /folder/" or "open /folder/file"'),
    ("sftp: {answers: {open: [{error: disk full}]}}", "sftp.answers.open[0].error: unknown value 'disk full'; allowed: no such file, permission denied, failure, operation unsupported"),
    ("sftp: {answers: {list: [{cut_after: 1}]}}", "sftp.answers.list[0].cut_after: unknown member; allowed: error, delay, hang, cut, repeat"),
    ("sftp: {answers: {open: [{error: failure, cut_after: 1}]}}", "sftp.answers.open[0].cut_after: error is the whole answer"),
    ("sftp: {answers: {open: [{repeat: true}, {}]}}", "sftp.answers.open[0].repeat: only the last answer of a list can repeat"),
])
def test_what_is_wrong_in_a_scenario_is_told(start: Starter, text: str, complaint: str) -> None:
    with pytest.raises(ScenarioError) as error:
        read(text, start)

    assert str(error.value).endswith(":1: " + complaint)


def test_an_archive_that_is_too_small_is_told(start: Starter) -> None:
    file = start.scenario_file({"sftp": {"files": {FFDC: [{"name": "a.tgz", "size": 10}]}}})
    run = outcome("--scenario", str(file), "--sftp-port", "0")

    assert run.returncode == 2
    assert "sftp.files: no archive fits into 10 bytes" in run.stderr


def test_every_example_and_every_scenario_that_comes_along_can_be_used(start: Starter) -> None:
    blocks = re.findall(r"```yaml\n(.*?)```", DOCUMENT.read_text(), re.DOTALL)
    examples = [block for block in blocks if "sftp:" in block]
    assert examples
    for block in examples:
        load(start.scenario_file(block), SECTIONS)
    along = [*EMULATOR.glob("scenarios/sftp-*.yaml"), EMULATOR / "scenarios" / "ipmi-demo.yaml"]
    assert len(along) >= 12
    for file in along:
        assert "sftp" in load(file, SECTIONS).given
        assert f"`{file.stem}`" in DOCUMENT.read_text()
