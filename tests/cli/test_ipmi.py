# SPDX-License-Identifier: Apache-2.0
"""Whole runs over IPMI, over the LAN and in band; in real time, so a poll takes 5 seconds."""

import concurrent.futures
import json
import pathlib
import re
import signal
import time

import pytest

import ipmi_tool
import tool
from ipmi_tool import over_lan, scenario

BOUND = 1.0  # seconds until an interrupted run has ended; instrumented builds get more

GOES_ON = " A BMC that has begun to gather goes on."


def collect(bmc, folder, *arguments, **variables):
    return tool.run(
        over_lan("collect", bmc, "--output", str(folder / "out"), "--log-file", str(folder / "log"), *arguments),
        password=bmc.password, environment=ipmi_tool.environment(folder, **variables))


def run_folder(folder):
    (name,) = tool.archives_in(folder / "out")
    assert re.fullmatch(r"[\w.]+_\d{8}T\d{6}Z_KEMFFDC", name)
    return folder / "out" / name


def no_secret_in(bmc, folder, ended):
    log = (folder / "log").read_text(encoding="utf-8")
    for text in (log, ended.out, ended.err, ended.command_line):
        for secret in ipmi_tool.secrets(bmc):
            assert secret not in text


MATRIX = [(address, suite, mode) for address in ("IPv4", "IPv6") for suite in (3, 17) for mode in (2, 3, 5)]


@pytest.fixture(scope="module")
def matrix(tmp_path_factory):
    """All at once: two BMCs, which serve several tools at a time."""
    folder = tmp_path_factory.mktemp("matrix")

    def one(bmc, name, suite, mode):
        place = folder / f"{name}-{suite}-{mode}"
        place.mkdir()
        return place, collect(bmc, place, "--cipher-suite", str(suite), "--mode", str(mode), "--json")

    # Only the account that this host's own BMC would give is missing: --user holds instead.
    with ipmi_tool.started() as ipv4, ipmi_tool.started(address="::1") as ipv6:
        bmcs = {"IPv4": ipv4, "IPv6": ipv6}
        with concurrent.futures.ThreadPoolExecutor(len(MATRIX)) as pool:
            runs = {key: pool.submit(one, bmcs[key[0]], *key) for key in MATRIX}
            yield {key: (bmcs[key[0]], *run.result()) for key, run in runs.items()}


@pytest.mark.parametrize("address,suite,mode", MATRIX)
def test_collects_with_every_suite_over_ipv4_and_ipv6_in_every_mode(matrix, address, suite, mode):
    bmc, place, ended = matrix[address, suite, mode]
    assert ended.code == 0, ended.err
    account = ended.json
    assert (account["outcome"], account["channel"], account["port"]) == ("downloaded", "ipmi", ipmi_tool.port_of(bmc))
    assert account["path"] == str(run_folder(place))
    expected = ipmi_tool.served(bmc, mode)
    assert ipmi_tool.fetched(account["path"]) == expected
    fetched = [file for file in account["files"] if file["outcome"] == "fetched"]
    assert {file["name"]: file["sha256"] for file in fetched} == expected
    for file in fetched:
        assert pathlib.Path(file["path"]).stat().st_size == file["size"]
        assert file["reason"] is None
    assert account["size"] == sum(file["size"] for file in fetched)
    assert account["files_not_tried"] == 0
    no_secret_in(bmc, place, ended)


def test_suites_are_used_as_asked_for(matrix):
    for address in ("IPv4", "IPv6"):
        bmc = matrix[address, 3, 2][0]
        opened = [r["cipher_suite"] for r in ipmi_tool.requests(bmc, "ipmi") if r.get("event") == "open"]
        assert sorted(opened) == [3] * 5 + [17] * 5  # two sessions in modes 3 and 5


def test_words_name_every_file_and_the_new_host_key(tmp_path):
    with ipmi_tool.started() as bmc:
        ended = collect(bmc, tmp_path)
        files = ipmi_tool.served(bmc)
        fingerprint = bmc.ready["sftp"]["fingerprint"]
    assert ended.code == 0
    assert f"Folder: {run_folder(tmp_path)}\n" in ended.out
    for name, sha256 in files.items():
        assert re.search(rf"  {re.escape(name)}: \d+ bytes, SHA-256 {sha256}\n", ended.out)
    assert ended.err.count(fingerprint) == 1
    assert "gather: the BMC gathers, 0 of at most 900 s" in ended.err
    for number in (1, 2, 3, 4):
        assert f"download, file {number} of 4 (" in ended.err
    assert "  kem_dump: a folder, passed over\n" in ended.out


def test_some_files_missing_end_with_9_and_the_json_says_why(tmp_path):
    sftp = {"files": {"/download/ffdc/": ["a.tgz", "b.log", "c.log"], "/download/ffdc/kem_dump/": None},
            "answers": {"open /download/ffdc/b.log": [{"error": "permission denied", "repeat": True}]}}
    with ipmi_tool.started(scenario(sftp=sftp)) as bmc:
        ended = collect(bmc, tmp_path, "--json")
    assert ended.code == 9
    account = ended.json
    assert (account["outcome"], account["exit_code"]) == ("files-missing", 9)
    assert [file["outcome"] for file in account["files"]] == ["fetched", "failed", "fetched"]
    failed = account["files"][1]
    assert (failed["path"], failed["size"], failed["sha256"]) == (None, None, None)
    assert "Permission denied (varnex.transfer:9)" in failed["reason"]
    assert sorted(ipmi_tool.fetched(run_folder(tmp_path))) == ["a.tgz", "c.log"]


def test_folder_of_the_bmc_is_passed_over_with_a_note(tmp_path):
    with ipmi_tool.started() as bmc:  # /download/ffdc/ holds kem_dump
        ended = collect(bmc, tmp_path, "--json")
    assert ended.code == 0, ended.err
    assert "Passed over, for being a folder of the BMC: kem_dump." in ended.json["bmc"]["notes"]
    assert [file["outcome"] for file in ended.json["files"]] == ["fetched", "fetched", "fetched", "folder"]
    assert ended.json["files"][3] == {"name": "kem_dump", "outcome": "folder", "path": None, "size": None,
                                      "sha256": None, "reason": None}


def test_file_that_is_named_as_the_other_one_on_its_way_comes_too(tmp_path):
    sftp = {"files": {"/download/ffdc/": ["x.part", "x", "y", "y.part"], "/download/ffdc/kem_dump/": None}}
    with ipmi_tool.started(scenario(sftp=sftp)) as bmc:
        ended = collect(bmc, tmp_path)
        assert ended.code == 0, ended.err
        assert ipmi_tool.fetched(run_folder(tmp_path)) == ipmi_tool.served(bmc)


def test_in_band_without_host_and_password(tmp_path):
    with ipmi_tool.started() as bmc:
        ended = tool.run(
            ["collect", "--via", "kcs", "--output", str(tmp_path / "out"), "--json"],
            environment=ipmi_tool.environment(tmp_path, **ipmi_tool.in_band(bmc, tmp_path)))
        files = ipmi_tool.served(bmc)
        commands = [r for r in ipmi_tool.requests(bmc, "ipmi") if r.get("command") == 0x49]
    assert ended.code == 0, ended.err
    account = ended.json
    assert (account["channel"], account["host"], account["port"]) == ("kcs", None, None)
    assert account["bmc"]["notes"][0] == f"The BMC's files come from {bmc.address} through usb0."
    assert ipmi_tool.fetched(account["path"]) == files
    assert [r["interface"] for r in commands] == ["kcs"]


@pytest.mark.parametrize("command", ["check", "collect"])
def test_in_band_the_file_service_may_be_named_by_its_address(tmp_path, command):
    """For machines whose firmware has no table of the interface."""
    with ipmi_tool.started() as bmc:
        environment = ipmi_tool.environment(tmp_path, EMULATED_KCS=bmc.ready["ipmi"]["kcs"])
        own = ["--output", str(tmp_path / "out")] if command == "collect" else []
        ended = tool.run([command, "--via", "kcs", bmc.address, *own, "--json"], environment=environment)
        files = ipmi_tool.served(bmc)
    assert ended.code == 0, ended.err
    account = ended.json
    assert (account["channel"], account["host"], account["port"]) == ("kcs", bmc.address, None)
    assert account["bmc"]["notes"][0] == f"The BMC's files come from {bmc.address}."
    if command == "collect":
        assert ipmi_tool.fetched(account["path"]) == files


def test_check_in_band_says_where_the_files_would_come_from(tmp_path):
    with ipmi_tool.started() as bmc:
        ended = tool.run(["check", "--via", "kcs", bmc.address],
                         environment=ipmi_tool.environment(tmp_path, EMULATED_KCS=bmc.ready["ipmi"]["kcs"]))
    assert ended.code == 0, ended.err
    assert f"BMC:             of this machine, in band, files from {bmc.address}, usable through kcs\n" in ended.out


def test_mode_5_in_band_fetches_with_the_account_of_this_machine_s_bmc(tmp_path):
    with ipmi_tool.started(scenario(sftp={"accounts": ["credential"]})) as bmc:
        ended = collect(bmc, tmp_path, "--mode", "5", **ipmi_tool.in_band(bmc, tmp_path))
        users = {r["user"] for r in ipmi_tool.requests(bmc, "sftp") if r["operation"] == "login"}
    assert ended.code == 0, ended.err
    assert users == {ipmi_tool.USER}


def test_check_tells_what_the_bmc_is_and_gathers_nothing(tmp_path):
    with ipmi_tool.started() as bmc:
        ended = tool.run(over_lan("check", bmc), password=bmc.password,
                         environment=ipmi_tool.environment(tmp_path))
        asked = [r for r in ipmi_tool.requests(bmc, "ipmi") if r.get("netfn") == 0x3A]
    assert ended.code == 0, ended.err
    assert f"BMC:             {bmc.address} port {ipmi_tool.port_of(bmc)}, usable through ipmi\n" in ended.out
    assert "Service version: IPMI 2.0\n" in ended.out
    assert re.findall("Note: .*", ended.out) == [
        f"Note: The host key of [{bmc.address}]:115, ssh-ed25519 {bmc.ready['sftp']['fingerprint']}, is new, is "
        f"accepted and remembered in {tmp_path}/known_hosts."]
    assert asked == []


def test_check_in_band_is_limited_where_nothing_answers_on_port_115(tmp_path):
    with ipmi_tool.started(scenario(sftp=False)) as bmc:
        ended = tool.run(["check", "--via", "kcs"],
                         environment=ipmi_tool.environment(tmp_path, **ipmi_tool.in_band(bmc, tmp_path)))
    assert ended.code == 10, ended.err
    assert "BMC:             of this machine, in band, reached, but of no use through kcs\n" in ended.out
    assert "Firmware:        4.20\n" in ended.out
    assert f"The BMC's file service (SFTP, {bmc.address} port 115) cannot be used: " in ended.err


# What makes the files unreachable, by the exit code: nobody may gather for nothing.
UNFETCHABLE = {
    "closed": (10, scenario(sftp=False), 2),
    "changed host key": (3, scenario(), 2),
    "login refused": (10, scenario(sftp={"accounts": []}), 5),
    "no SFTP server": (10, scenario(sftp={"silent": True}), 3),
}


@pytest.mark.parametrize("command, why", [
    (command, why) for command in ("check", "collect") for why in sorted(UNFETCHABLE)
    if command == "collect" or UNFETCHABLE[why][2] == 2])
def test_bmc_whose_files_cannot_be_fetched_is_not_told_to_gather(tmp_path, why, command):
    code, what, mode = UNFETCHABLE[why]
    with ipmi_tool.started(what) as bmc:
        if why == "changed host key":
            other = "AAAAC3NzaC1lZDI1NTE5AAAAIG7CnXZ0rwbTTDQmmFNlUHSxEnIIi0Zu5k0dQgkeBzXq"
            (tmp_path / "known_hosts").write_text(f"[{bmc.address}]:115 ssh-ed25519 {other}\n", encoding="ascii")
        own = ["--mode", str(mode), "--output", str(tmp_path / "out")] if command == "collect" else []
        ended = tool.run(over_lan(command, bmc, *own), password=bmc.password,
                         environment=ipmi_tool.environment(tmp_path, VARNEX_TRANSFER_CONNECT_TIME="2"))
        asked = [r["command"] for r in ipmi_tool.requests(bmc, "ipmi") if r.get("netfn") == 0x3A]
        logins = [r for r in ipmi_tool.requests(bmc, "sftp") if r["operation"] == "login"]
    assert ended.code == code, ended.err
    assert asked == []
    assert len(logins) == (1 if why == "login refused" else 0), "a password is tried once"
    assert not (tmp_path / "out").exists()


def test_nobody_logs_in_before_the_bmc_has_given_its_account(tmp_path):
    with ipmi_tool.started() as bmc:
        assert collect(bmc, tmp_path).code == 0
        users = [r["user"] for r in ipmi_tool.requests(bmc, "sftp") if r["operation"] == "login"]
    assert users == [ipmi_tool.USER]


@pytest.mark.parametrize("answer, why", [({"code": 0xC3}, "completion code C3h: it ran out of time over the command")])
def test_check_in_band_says_that_the_bmc_behind_the_device_is_dead(tmp_path, answer, why):
    dead = scenario({"answers": {"06 01": [{**answer, "repeat": True}]}})
    with ipmi_tool.started(dead) as bmc:
        ended = tool.run(["check", "--via", "kcs"],
                         environment=ipmi_tool.environment(tmp_path, **ipmi_tool.in_band(bmc, tmp_path)))
    assert ended.code == 3, ended.err
    assert f"This machine has an IPMI device, but its BMC does not answer ({why})." in ended.err
    assert "usable" not in ended.out


def test_refusals_are_told_with_their_code_and_its_meaning(tmp_path):
    refusing = scenario({"polls": 0, "answers": {"collect": [{"code": 0xC0}], "poll": [{"code": 0x83}]}})
    with ipmi_tool.started(refusing) as bmc:
        ended = collect(bmc, tmp_path, "--json")
    assert (ended.code, ended.json["outcome"], ended.json["retryable"]) == (4, "busy", True), ended.err
    assert ended.json["refusals"] == [
        {"request": "start", "completion_code": 0xC0, "meaning": "it is busy"},
        {"request": "poll", "completion_code": 0x83, "meaning": "a code that belongs to this command"}]


def test_the_file_services_key_is_a_fact_of_the_bmc(tmp_path):
    with ipmi_tool.started() as bmc:
        ended = collect(bmc, tmp_path, "--json")
        fingerprint = bmc.ready["sftp"]["fingerprint"]
    assert fingerprint in ended.json["bmc"].values()
    assert ended.json["refusals"] == []
    assert ended.json["address"] == ended.json["host"]


def test_check_with_a_wrong_password(tmp_path):
    with ipmi_tool.started() as bmc:
        ended = tool.run(over_lan("check", bmc), password="not this one",
                         environment=ipmi_tool.environment(tmp_path))
    assert ended.code == 3
    assert "not this one" not in ended.out + ended.err


def test_runs_of_several_bmcs_into_one_folder_stay_apart(tmp_path):
    with ipmi_tool.started() as one, ipmi_tool.started() as other:
        def run(bmc):
            return tool.run(over_lan("collect", bmc, "--output", str(tmp_path / "out"), "--json"),
                            password=bmc.password, environment=ipmi_tool.environment(tmp_path))
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            ended = list(pool.map(run, (one, other)))
        assert [e.code for e in ended] == [0, 0], [e.err for e in ended]
        for bmc, run_of_it in zip((one, other), ended):
            assert ipmi_tool.fetched(run_of_it.json["path"]) == ipmi_tool.served(bmc)


# Where the BMC leaves the tool waiting, and the record that shows that it got there.
STEPS = {
    "connect": (scenario({"silent": True}), lambda r: r.get("event") == "ignored"),
    "sleep between polls": (scenario({"polls": -1}), lambda r: r.get("command") == 0x4D),
    "poll": (scenario({"answers": {"poll": [{"hang": True, "repeat": True}]}}),
             lambda r: r.get("command") == 0x4D),
    "login": (scenario(sftp={"answers": {"login": [{"hang": True, "repeat": True}]}}),
              lambda r: r.get("operation") == "login"),
    "listing": (scenario(sftp={"answers": {"list": [{"hang": True, "repeat": True}]}}),
                lambda r: r.get("operation") == "list"),
    "transfer": (scenario(sftp={"files": {"/download/ffdc/": ["a.log", {"name": "b.log", "size": 1000000}]},
                                "answers": {"open */b.log": [{"rate": 20000, "repeat": True}]}}),
                 lambda r: r.get("operation") == "open" and r["path"].endswith("b.log")),
    "stalled transfer": (scenario(sftp={"answers": {"open": [{"hang_after": 1000, "repeat": True}]}}),
                         lambda r: r.get("operation") == "open"),
}


def interrupted(step, number, folder):
    what, there = STEPS[step]
    with ipmi_tool.started(what) as bmc:
        running = tool.Running(over_lan("collect", bmc, "--output", str(folder / "out"), "--json"),
                               password=bmc.password, environment=ipmi_tool.environment(folder))
        end = time.monotonic() + 30 * tool.SLOWNESS
        while not any(there(r) for service in ("ipmi", "sftp") for r in ipmi_tool.requests(bmc, service)):
            assert time.monotonic() < end, f"{step} was not reached"
            time.sleep(0.05)
        time.sleep(0.3)  # into the blocking call
        ended = running.interrupt(number)
        closed = [r for r in ipmi_tool.requests(bmc, "ipmi") if r.get("event") == "close"]
        return ended, len(closed)


@pytest.fixture(scope="module")
def interruptions(tmp_path_factory):
    folder = tmp_path_factory.mktemp("interruptions")
    wanted = {step: signal.SIGINT for step in STEPS} | {"sleep between polls": signal.SIGTERM}
    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        runs = {}
        for step, number in wanted.items():
            place = folder / step.replace(" ", "-")
            place.mkdir()
            runs[step] = place, pool.submit(interrupted, step, number, place)
        yield {step: (place, run.result()) for step, (place, run) in runs.items()}


@pytest.mark.parametrize("step", sorted(STEPS))
def test_interrupted_within_a_second_and_nothing_is_left(interruptions, step):
    place, (ended, _) = interruptions[step]
    assert ended.code == 130, ended.err
    assert ended.seconds < BOUND * tool.SLOWNESS
    assert (ended.json["outcome"], ended.json["path"]) == ("interrupted", None)
    assert ended.err.endswith(f"kemffdc: Interrupted.{GOES_ON if 'poll' in step else ''} [exit code 130]\n")
    assert not (place / "out").exists(), tool.files_in(place)


@pytest.mark.parametrize("step", sorted(set(STEPS) - {"connect", "poll"}))
def test_bmc_is_told_that_the_session_of_an_interrupted_run_ends(interruptions, step):
    _, (_, closed) = interruptions[step]
    assert closed == 1


def test_the_live_line_shows_the_gathering_and_the_bytes(tmp_path):
    what = scenario({"polls": 1}, {"files": {"/download/ffdc/": [{"name": "a.log", "size": 60000}],
                                             "/download/ffdc/kem_dump/": None},
                                   "answers": {"open": [{"rate": 20000, "repeat": True}]}})
    with ipmi_tool.started(what) as bmc:
        arguments = [a for a in over_lan("collect", bmc, "--output", str(tmp_path / "out"))
                     if a not in ("--password-file", "-")]
        terminal = tool.Terminal(arguments, {**ipmi_tool.environment(tmp_path), "KEMFFDC_PASSWORD": bmc.password})
        terminal.read(r"gather: the BMC gathers, 5 of at most 900 s", 30)
        terminal.read(r"download, file 1 of 1 \(a\.log\): [\d.]+ KiB of 58\.6 KiB", 30)
        assert terminal.end() == 0
        assert bmc.password not in terminal.text


# --- what outlives a run ---


def asked(*arguments):
    ended = tool.run([*arguments, "--json"])
    assert ended.code == 0, ended.err
    return ended.json


def test_an_ipmi_run_is_kept_with_all_its_files(tmp_path, state):
    with ipmi_tool.started(scenario({"polls": 0})) as bmc:
        environment = {**ipmi_tool.environment(tmp_path, [ipmi_tool.PLAYED_TIME], PLAYED_SLEEP="1000"),
                       "XDG_STATE_HOME": str(state.parent)}
        ended = tool.run(ipmi_tool.over_lan("collect", bmc, "--output", str(tmp_path / "out"), "--json"),
                         password=bmc.password, environment=environment)
    assert ended.code == 0, ended.err
    account = ended.json
    folder = pathlib.Path(account["path"])
    assert re.fullmatch(rf"{re.escape(bmc.address)}_\d{{8}}T\d{{6}}Z_KEMFFDC", folder.name)
    assert json.loads((tmp_path / "out" / (folder.name + ".json")).read_text(encoding="utf-8")) == account
    fetched = {file["path"]: file["sha256"] for file in account["files"] if file["outcome"] == "fetched"}
    tried = asked("history")["runs"][0]["archives"]
    archives = [one for one in tried if one["path"] is not None]
    assert [one["name"] for one in tried if one not in archives] == ["kem_dump"]
    assert {one["path"]: one["sha256"] for one in archives} == fetched
    assert {one["path"] for one in archives if one["readable"]} == {
        path for path in fetched if path.endswith((".tgz", ".tar.gz"))}
    for subject in ("1", str(folder), str(tmp_path / "out")):
        files = asked("verify", subject)["files"]
        assert {file["path"] for file in files} == set(fetched)
    shown = asked("show", str(folder))
    assert {one["path"] for one in shown["contents"]} == set(fetched)
