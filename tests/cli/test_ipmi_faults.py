# SPDX-License-Identifier: Apache-2.0
"""Plays every row of docs/faults.md about IPMI with the real tool.

The table says what comes out; the scenarios here say only how the fault is made. Sleeps of the tool
are shortened, so that a poll does not take 5 seconds; the rows run several at a time, each with a
BMC of its own.
"""

import concurrent.futures
import dataclasses
import pathlib
import re

import pytest

import ipmi_tool
import tool
from faults_play import check_reason, check_texts, special_folder
from faults_table import rows
from ipmi_tool import scenario

HEADING = "Over IPMI"
ROWS = rows(HEADING)
AT_ONCE = 4

FFDC = "/download/ffdc/"
KEM_DUMP = "/download/ffdc/kem_dump/"
CODES = {"C1": 0xC1, "D4": 0xD4, "FF": 0xFF}
CUT = {"cut_after": 1000, "repeat": True}


@dataclasses.dataclass
class Trouble:
    """A fault: the BMC, and how the tool is run against it."""

    bmc: dict = dataclasses.field(default_factory=scenario)
    arguments: list = dataclasses.field(default_factory=list)
    environment: dict = dataclasses.field(default_factory=dict)
    host: str = None
    port: int = None
    user: str = None
    password: str = None
    mode: int = None
    kcs: bool = False
    output: str = None
    folder: str = None
    known_key: bool = False
    named: bool = False  # in band: HOST is given
    seconds: float = 30.0


def ipmi(**members):
    return scenario(ipmi=members)


def answers(**commands):
    """Each command has these answers; the last one stays."""
    listed = {name: [*given[:-1], {**given[-1], "repeat": True}] for name, given in commands.items()}
    return ipmi(answers=listed)


def credential(data):
    return answers(credential=[{"data": data}])


def sftp(files=None, folder=FFDC, **members):
    if files is not None:
        members["files"] = {KEM_DUMP: None, folder: files}
    return scenario(sftp=members)


SHORT = {"VARNEX_IPMI_SESSION_TIMEOUT": "4"}

SCENARIOS = {
    "Refused UDP port": Trouble(port=9),
    "Silent UDP port (bounded by IPMI_SESSION_TIMEOUT)": Trouble(ipmi(silent=True), environment=SHORT),
    "Silent UDP port (bounded by --deadline)": Trouble(ipmi(silent=True), ["--deadline", "6"], seconds=12),
    "Unknown host": Trouble(host="no-such-bmc.invalid"),
    "Wrong password": Trouble(password="not this one"),
    "Unknown user": Trouble(user="nobody"),
    "User name longer than 16 bytes": Trouble(user="seventeen-letters"),
    "Suite 3 not offered": Trouble(ipmi(cipher_suites=[17]), ["--cipher-suite", "3"]),
    "Suite 17 not offered": Trouble(ipmi(cipher_suites=[3])),
    "Suite refused with the status 04h, 05h, 10h": Trouble(
        ipmi(cipher_suites=[3], refusal=0x05)),
    "Session refused with another status": Trouble(ipmi(cipher_suites=[3], refusal=0x12)),
    "Network that loses 10 % of the datagrams": Trouble(
        ipmi(polls=5, network={"loss": 10, "seed": 2}), seconds=120),
    "Every datagram comes twice": Trouble(ipmi(network={"duplicates": 100})),
    "Datagrams that overtake each other": Trouble(ipmi(network={"duplicates": 30, "reordered": 30, "seed": 2})),
    "BMC that takes 8 s for each command": Trouble(
        answers(collect=[{"delay": 8}], poll=[{"delay": 8, "data": "01"}]), seconds=120),
    "Poll answered with another command": Trouble(answers(poll=[{"as": "3A 49", "data": "01"}])),
    "User may not act as administrator": Trouble(ipmi(privilege=3)),
    "BMC gone before it starts to gather": Trouble(
        ipmi(answers={"collect": [{"gone": True}]}), environment=SHORT),
    "BMC gone in mid-poll": Trouble(
        ipmi(answers={"poll": [{"data": "00"}, {"gone": True}]}), environment=SHORT),
    "BMC gone before it gives an account": Trouble(
        ipmi(answers={"credential": [{"gone": True}]}), environment=SHORT),
    "Start refused, and no files": Trouble(
        scenario({"answers": {"collect": {"code": 0xC1}}}, {"files": {FFDC: [], KEM_DUMP: None}})),
    "Poll answered without data": Trouble(answers(poll=[{"data": ""}])),
    "Not finished after 900 s": Trouble(ipmi(polls=-1), seconds=120),
    "Account: empty answer": Trouble(credential("")),
    "Account: length of the name overruns": Trouble(credential("05 72 6f 6f 74")),
    "Account: length of the password overruns": Trouble(credential("04 72 6f 6f 74 04 61 62 63")),
    "Account: length of the name 255, and no more": Trouble(credential("ff")),
    "Account: no length of the password": Trouble(credential("04 72 6f 6f 74")),
    "Account: lengths 0": Trouble(credential("00 00")),
    "Account: name and password of 255 bytes": Trouble(
        scenario({"credential": {"user": "u" * 255, "password": "p" * 255}})),
    "SFTP refused": Trouble(scenario(sftp=False)),
    "SFTP silent (bounded by TRANSFER_CONNECT_TIME)": Trouble(
        sftp(silent=True), environment={"VARNEX_TRANSFER_CONNECT_TIME": "2"}),
    "SFTP: wrong password": Trouble(sftp(accounts=[])),
    "SFTP: wrong password (mode 5)": Trouble(sftp(accounts=[]), mode=5),
    "SFTP: no such folder": Trouble(
        scenario(sftp={"files": {FFDC: None, KEM_DUMP: None}})),
    "SFTP: empty folder": Trouble(sftp(files=[])),
    "Mode 3, and no name that ends with .tzz": Trouble(sftp(["a.tgz", "b.log"], KEM_DUMP), mode=3),
    "A listing of 10,000 names": Trouble(
        sftp([{"name": "core_{n}.log", "count": 9999, "text": "a core\n"}, "a.tzz"], KEM_DUMP), mode=3,
        seconds=60),
    "Names with blanks, `%`, `#`, escapes, leading dashes": Trouble(
        sftp(["with blanks.tgz", "a%41 100%.log", "a#1?.log", "a\x1b[2J.log", "-rf", "--output=x"])),
    "Names with newlines and slashes, `../x` and `/etc/x`": Trouble(
        sftp(["a\nline.log", "../x", "../../x.tgz", "/etc/x", "a/b.log", "plain.tgz"])),
    "Two files, one named as the other on its way": Trouble(sftp(["x.part", "x"])),
    "A name of 300 bytes": Trouble(sftp(["n" * 300, "short.log"])),
    "A folder among the names": Trouble(sftp(["a.tgz", {"name": "older", "folder": True}, "b.log"])),
    "Nothing but a folder": Trouble(scenario(sftp={"files": {FFDC: []}})),
    "Files that may not be opened": Trouble(
        sftp(["a.log", "b.log"], answers={"open": [{"error": "permission denied", "repeat": True}]})),
    "Cut in mid-file, not an archive": Trouble(
        sftp(["a.tgz", "b.log"], answers={f"open {FFDC}b.log": [CUT]})),
    "Cut in mid-file, an archive": Trouble(
        sftp(["a.log", "b.tgz", "c.tzz"], answers={f"open {FFDC}b.tgz": [CUT]})),
    "An archive that does not unpack": Trouble(
        sftp([{"name": "a.tgz", "text": "<html>Log in</html>"}, "b.log"])),
    "Both kinds of archives cut (mode 5)": Trouble(
        sftp(["a.tgz", "b.tzz", "c.log"], KEM_DUMP,
             answers={f"open {KEM_DUMP}*.t?z": [CUT]}), mode=5),
    "Stalled transfer (bounded by TRANSFER_STALL_TIME)": Trouble(
        sftp(["a.tgz"], answers={"open": [{"hang_after": 1000, "repeat": True}]}),
        environment={"VARNEX_TRANSFER_STALL_TIME": "2"}),
    "Changed host key": Trouble(known_key=True),
    "Unknown host key, and only known ones accepted": Trouble(
        environment={"VARNEX_SFTP_HOST_KEYS": "strict"}),
    "Output folder not writable": Trouble(folder="ro"),
    "Output folder not existing, nor its parent": Trouble(output="no/such"),
    "Output folder that is a file": Trouble(output="known_hosts"),
    "Disk full": Trouble(
        sftp([{"name": "a.log", "size": 1000}, {"name": "b.log", "size": 1048576}]),
        ["--keep-free", "0"], folder="size=256k"),
    "Less free than --keep-free before the run": Trouble(folder="size=2m"),
    "Files larger than --max-size in all": Trouble(
        sftp([{"name": f"{n}.log", "size": 400000} for n in "abcd"]), ["--max-size", "1M"]),
    "Very many files, larger than --max-size in all": Trouble(
        sftp(["a.log", {"name": "b.log", "size": 1048576}, {"name": "c_{n}.log", "count": 5000, "text": "c"}]),
        ["--max-size", "1M"], seconds=60),
    "BMC that sends 50 bytes a second (bounded by --deadline)": Trouble(
        sftp(["a.log", "b.log"], answers={"open": [{"rate": 50, "repeat": True}]}), ["--deadline", "8"],
        seconds=14),
    "Clock going back during the run": Trouble(environment={"PLAYED_BACKWARDS": "1"}),
    "In band: no network interface to the BMC": Trouble(
        kcs=True, environment={"VARNEX_DMI_TABLE": "/nonexistent"}),
    "In band with HOST: no network interface to the BMC": Trouble(
        kcs=True, named=True, environment={"VARNEX_DMI_TABLE": "/nonexistent"}),
    "In band: no device": Trouble(kcs=True, environment={"EMULATED_KCS": "errno:2"}),
    "In band: no permission": Trouble(kcs=True, environment={"EMULATED_KCS": "errno:13"}),
}
for name, code in CODES.items():
    SCENARIOS[f"Start answered with {name}"] = Trouble(answers(collect=[{"code": code}]))
    SCENARIOS[f"Poll answered with {name}"] = Trouble(answers(poll=[{"data": "00"}, {"code": code}]))
    SCENARIOS[f"Account refused with {name}"] = Trouble(answers(credential=[{"code": code}]))


def test_every_row_has_a_scenario_and_every_scenario_a_row():
    assert sorted(ROWS) == sorted(SCENARIOS)


@dataclasses.dataclass
class Played:
    """A row that was played: how the tool ended, and what is left."""

    ended: tool.Ended
    place: tuple  # host and port
    log: str
    left: list
    secrets: set


def play(what, folder):
    """None where this machine forbids what the row needs."""
    trouble = SCENARIOS[what]
    folder.mkdir()
    output = folder / (trouble.output or "out")
    if not trouble.output:
        output.mkdir()
    if trouble.output == "known_hosts":
        output.touch()
    with ipmi_tool.started(trouble.bmc) as bmc:
        host, port = trouble.host or bmc.address, trouble.port or ipmi_tool.port_of(bmc)
        password = trouble.password or bmc.password
        if trouble.known_key:
            other = "AAAAC3NzaC1lZDI1NTE5AAAAIG7CnXZ0rwbTTDQmmFNlUHSxEnIIi0Zu5k0dQgkeBzXq"
            (folder / "known_hosts").write_text(f"[{host}]:115 ssh-ed25519 {other}\n", encoding="ascii")
        way = ["--via", "kcs", *([host] if trouble.named else [])] if trouble.kcs else [
            "--via", "ipmi", host, "--port", str(port), "--user", trouble.user or bmc.user, "--password-file", "-"]
        prefix = special_folder(output, trouble.folder) if trouble.folder else []
        if prefix is None:
            return None
        variables = {**(ipmi_tool.in_band(bmc, folder) if trouble.kcs else {}), **trouble.environment}
        environment = ipmi_tool.environment(
            folder, [ipmi_tool.PLAYED_TIME], PLAYED_SLEEP="1000", **variables)
        if prefix:  # for the tool alone, not for the shell before it
            prefix += ["env", f"LD_PRELOAD={environment.pop('LD_PRELOAD')}"]
        ended = tool.run(
            ["collect", *way, "--output", str(output), "--json", "--log-file", str(folder / "log"),
             *trouble.arguments, *(["--mode", str(trouble.mode)] if trouble.mode else [])],
            password=None if trouble.kcs else password, seconds=trouble.seconds,
            prefix=prefix, environment=environment)
        log = folder / "log"
        return Played(
            ended, (host, port), log.read_text(encoding="utf-8") if log.exists() else "",
            tool.files_in(output) if output.is_dir() else [], {password, *ipmi_tool.secrets(bmc)})


@pytest.fixture(scope="module")
def played(request, tmp_path_factory):
    """The rows that are asked for, several at a time."""
    folder = tmp_path_factory.mktemp("rows")
    wanted = [item.callspec.params["what"] for item in request.session.items
              if getattr(item, "originalname", "") == "test_fault" and item.path == request.path]
    with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
        rows = {what: pool.submit(play, what, folder / str(n)) for n, what in enumerate(wanted)}
        yield rows


def last_library_step(account):
    """Operation and code of the library's last one."""
    names = {"connect": "Connect", "collect": "Apply"}
    steps = [step for step in account["steps"] if step["name"] in names]
    return f"{names[steps[-1]['name']]} {steps[-1]['code']}" if steps else "none"


@pytest.mark.parametrize("what", sorted(SCENARIOS))
def test_fault(what, played):
    row, trouble, run = ROWS[what], SCENARIOS[what], played[what].result()
    if run is None:
        pytest.skip("no file system of one's own here")
    ended = run.ended
    assert ended.code == row.code, ended.err
    account = ended.json
    assert account["exit_code"] == row.code
    assert row.library in ("stopped", last_library_step(account))
    check_texts(ended, run.log, run.secrets)
    if row.code != 0:
        assert not check_reason(row, run.place, ended)
    assert all(step["seconds"] >= 0 for step in account["steps"])
    check_files(account, trouble, run)


def check_files(account, trouble, run):
    """Whole files alone, and exactly those that the account names."""
    fetched = [file for file in account["files"] if file["outcome"] in ("fetched", "unreadable")]
    left = [name[6:] for name in run.ended.err.splitlines() if name.startswith("LEFT:")]
    if not fetched:
        assert account["path"] is None
        assert run.left == [] and left == []
        return
    names = {pathlib.Path(file["path"]).name for file in fetched}
    run_folder = pathlib.Path(account["path"]).name
    assert re.fullmatch(r"[\w.-]+_\d{8}T\d{6}Z_KEMFFDC", run_folder)
    assert account["size"] == sum(file["size"] for file in fetched)
    if trouble.folder:
        assert {pathlib.Path(name).name for name in left} == {run_folder, run_folder + ".json", *names}
    else:
        assert set(run.left) == {run_folder, run_folder + ".json", *(f"{run_folder}/{name}" for name in names)}

