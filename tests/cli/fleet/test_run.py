# SPDX-License-Identifier: Apache-2.0
"""Fleet runs: every host has an outcome, limits and the guard hold, and no password is where it may not be."""

import csv
import json
import pathlib
import subprocess

import pytest
import yaml

import json_contract
import tool
from fleet_tool import AtOnce, Journal, archives, folder_of, wait_until

DONE, USAGE, LOCAL, SOME, NONE = 0, 2, 8, 20, 21
QUICKLY = ["--retries", "1", "--retry-pause", "1"]


def report_rows(folder):
    """report.csv, by host."""
    with (folder / "report.csv").open(encoding="utf-8", newline="") as file:
        return {row["name"]: row for row in csv.DictReader(file)}


def test_bmcs_of_every_make_end_in_one_report(fleet, run):
    bmcs = fleet("--count", "10", "--mix", "redfish=1,standard=4,tree=1,harrow=1,orlan=1,ipmi=1,cim=1",
                 "--gathering", "1", "--standard-ports")

    ended = run("collect", bmcs).end()

    assert ended.code == DONE, ended.err
    assert ended.outcomes() == {bmc["name"]: "exported" if bmc["kind"] == "cim" else "downloaded" for bmc in bmcs.bmcs}
    expected = {bmc["name"]: (bmc["via"], bmc["operation"]) for bmc in bmcs.bmcs}
    assert {host["name"]: (host["channel"], host["operation"]) for host in ended.result["hosts"]} == expected
    folder = folder_of(ended)
    for bmc in bmcs.bmcs:
        if bmc["kind"] != "cim":
            assert len(archives(folder, bmc["name"])) == 1
    report = json_contract.check_report((folder / "report.json").read_text())
    assert report["totals"]["done"] == 10
    assert {host["name"]: (host["channel"], host["operation"]) for host in report["hosts"]} == expected
    rows = report_rows(folder)
    assert {name: (row["channel"], row["operation"] or None) for name, row in rows.items()} == expected
    page = (folder / "report.html").read_text(encoding="utf-8")
    assert all(f"<td>redfish<small>{operation}</small></td>" in page for operation in ("oem", "standard", "tree"))


@pytest.mark.parametrize("kind", ["csv", "yaml"])
def test_the_inventory_says_by_which_operation(fleet, run, tmp_path, kind):
    """Also by another than would be found: each of these BMCs offers the OEM's export."""
    bmcs = fleet("--count", "3", "--gathering", "1", "--inventory", tmp_path / "given.csv")
    wanted = dict(zip(("bmc001", "bmc002", "bmc003"), ("tree", "standard", "oem")))
    bmcs.inventory = tmp_path / f"own.{kind}"
    if kind == "csv":
        lines = [f"{b['name']},{b['address']},redfish,{b['port']},fleet,{wanted[b['name']]}\n" for b in bmcs.bmcs]
        bmcs.inventory.write_text("name,address,via,port,credential,operation\n" + "".join(lines))
    else:
        hosts = {b["name"]: {"address": b["address"], "port": b["port"], "operation": wanted[b["name"]]} for b in bmcs.bmcs}
        del hosts["bmc001"]["operation"]  # as the defaults have it
        bmcs.inventory.write_text(yaml.safe_dump(
            {"defaults": {"via": "redfish", "credential": "fleet", "operation": "tree"}, "hosts": hosts}))

    ended = run("collect", bmcs, *QUICKLY).end()

    assert ended.code == SOME, ended.err
    assert ended.outcomes() == {"bmc001": "downloaded", "bmc002": "unsupported", "bmc003": "downloaded"}
    rows = report_rows(folder_of(ended))
    assert {name: row["operation"] for name, row in rows.items()} == wanted
    assert [name for name, row in rows.items() if row["archive"].endswith("_tree.tar.gz")] == ["bmc001"]
    assert bmcs.exports() == {"bmc001": 0, "bmc002": 0, "bmc003": 1}


def test_an_operation_that_there_is_not_is_told_by_its_row(run, tmp_path):
    inventory = tmp_path / "rack.csv"
    inventory.write_text("name,via,operation\nbmc1,redfish,oem\nbmc2,redfish,trees\n")

    ended = run("collect", None, inventory, "--user", "admin").end()

    assert ended.code == USAGE
    assert f'{inventory}:3: operation: "trees" is none of auto, oem, standard and tree. Did you mean tree?' in ended.err


def test_every_host_of_a_fleet_with_faults_has_an_outcome(fleet, run):
    bmcs = fleet("--count", "12", "--mix", "redfish=8,ipmi=2,cim=2", "--gathering", "1", "--faults", "50",
                 "--seed", "9", "--standard-ports")
    faults = {bmc["name"]: bmc["fault"] for bmc in bmcs.bmcs}
    assert list(faults.values()).count("wrong-password") < 2, "the guard would end the run"
    assert len({fault for fault in faults.values() if fault}) >= 3

    ended = run("collect", bmcs, *QUICKLY).end()

    assert ended.code == SOME, ended.err
    outcomes = ended.outcomes()
    assert set(outcomes) == set(faults)
    for name, fault in faults.items():
        # A BMC with CIM sends its archive itself: a cut download is a busy BMC there.
        if fault in ("", "slow") or (fault == "cut" and bmcs.named(name)["kind"] != "cim"):
            assert outcomes[name] in ("downloaded", "exported"), (name, fault, outcomes[name])
        if fault == "wrong-password":
            assert outcomes[name] == "login-refused"
        if fault in ("silent", "busy", "dies"):
            assert outcomes[name] not in ("downloaded", "exported"), (name, fault)
    again = {host["name"]: host["attempts"] for host in ended.result["hosts"]}
    for name, fault in faults.items():
        if fault == "":
            assert again[name] == 1
        if fault == "wrong-password":
            assert again[name] == 1, "a refused login is never tried again"
        if fault == "silent":
            assert again[name] == 2


def test_check_gathers_nothing_and_counts_what_is_limited_as_not_usable(fleet, run):
    bmcs = fleet("--count", "4", "--gathering", "1")

    ended = run("check", bmcs).end()

    assert ended.code == DONE, ended.err
    assert set(ended.outcomes().values()) == {"checked"}
    assert set(bmcs.exports().values()) == {0}


def test_a_wrong_password_reaches_three_hosts_and_no_more(fleet, run, tmp_path):
    bmcs = fleet("--count", "12")
    wrong = tmp_path / "wrong"
    wrong.write_text("wrong-password\n")
    credentials = tmp_path / "wrong.yaml"
    credentials.write_text(f"fleet: {{user: admin, password_file: {wrong}}}\n")
    for file in (wrong, credentials):
        file.chmod(0o600)
    bmcs.credentials = credentials

    ended = run("collect", bmcs).end()

    assert ended.code == NONE
    asked = [bmc["name"] for bmc in bmcs.bmcs if bmcs.requests(bmc)]
    assert 2 <= len(asked) <= 3
    outcomes = list(ended.outcomes().values())
    assert outcomes.count("login-refused") == len(asked)
    assert outcomes.count("guarded") == 12 - len(asked)
    assert "The credential fleet has been refused twice" in ended.err


def test_no_more_gather_than_may(fleet, run):
    bmcs = fleet("--count", "10", "--gathering", "1")
    at_once = AtOnce(bmcs)

    ended = run("collect", bmcs, "--gathering", "2", "--transfers", "1").end()

    at_once.stop()
    assert ended.code == DONE, ended.err
    assert 1 <= at_once.gathering <= 2 + 1


def test_what_may_end_better_is_tried_again(fleet, run):
    bmcs = fleet("--count", "1", "--faults", "100", "--seed", "0")
    for seed in range(1, 40):
        if bmcs.bmcs[0]["fault"] == "silent":
            break
        bmcs.stop()
        bmcs = fleet("--count", "1", "--faults", "100", "--seed", str(seed))
    assert bmcs.bmcs[0]["fault"] == "silent"

    ended = run("collect", bmcs, "--retries", "2", "--retry-pause", "1").end()

    assert ended.code == NONE
    assert ended.result["hosts"][0]["attempts"] == 3
    assert ended.result["hosts"][0]["outcome"] == "unreachable"


def test_status_says_how_far_a_bmc_is_and_by_which_operation(fleet, run, state):
    bmcs = fleet("--count", "1", "--gathering", "600")
    begun = run("collect", bmcs)

    def told():
        shown = run("status", None).end()
        hosts = json.loads(shown.out)["hosts"] if shown.code == DONE else []
        return [(host["percent"], host["operation"]) for host in hosts] == [(0, "oem")]

    wait_until(told)
    begun.kill()


def test_passwords_are_nowhere_but_on_the_workers_standard_input(fleet, run, state):
    bmcs = fleet("--count", "2", "--gathering", "10")
    password = bmcs.password()
    begun = run("collect", bmcs, environment={"KEMFFDC_PASSWORD": "unused-but-secret"})
    wait_until(lambda: Journal(state).states()["gathering"] == 2)
    for pid in begun.workers():
        proc = pathlib.Path(f"/proc/{pid}")
        seen = proc.joinpath("cmdline").read_bytes() + proc.joinpath("environ").read_bytes()
        assert password.encode() not in seen and b"unused-but-secret" not in seen

    ended = begun.end()

    assert ended.code == DONE, ended.err
    assert password not in ended.out + ended.err
    for file in [*state.rglob("*"), *folder_of(ended).rglob("*.json"), *folder_of(ended).glob("report.*")]:
        if file.is_file():
            assert password.encode() not in file.read_bytes(), file


def test_too_many_at_once_are_refused_before_anything_starts(fleet, run, tmp_path):
    bmcs = fleet("--count", "20", "--gathering", "1")
    limited = ["/bin/sh", "-c", 'ulimit -n 100; exec "$@"', "sh", tool.TOOL]

    ended = subprocess.run(
        [*limited, "fleet", "collect", bmcs.inventory, "--credentials", bmcs.credentials, "--output",
         tmp_path / "runs"], env=tool.run_environment(), capture_output=True, text=True, timeout=60, check=False)

    assert ended.returncode == LOCAL
    assert "20 BMCs at once would take 144 open files, and there are 100." in ended.stderr
    assert "ulimit -n" in ended.stderr
    assert not (tmp_path / "runs").exists()
    assert not any(bmcs.requests(bmc) for bmc in bmcs.bmcs)


def test_a_password_that_cannot_be_read_ends_the_run_before_it_begins(fleet, run, tmp_path):
    bmcs = fleet("--count", "2")
    credentials = tmp_path / "none.yaml"
    credentials.write_text("fleet: {user: admin, password_file: /nonexistent/file}\n")
    credentials.chmod(0o600)
    bmcs.credentials = credentials

    ended = run("collect", bmcs).end()

    assert ended.code == LOCAL
    assert "/nonexistent/file" in ended.err
    assert ended.result["exit_code"] == LOCAL and ended.result["hosts"] == []
    assert not (tmp_path / "runs").exists()
    assert not any(bmcs.requests(bmc) for bmc in bmcs.bmcs)


def test_two_runs_at_once_have_folders_of_their_own(fleet, run):
    bmcs = fleet("--count", "2", "--gathering", "1")

    first, second = run("check", bmcs), run("check", bmcs)

    first.end()
    second.end()
    assert (first.code, second.code) == (DONE, DONE), first.err + second.err
    assert folder_of(first) != folder_of(second)
