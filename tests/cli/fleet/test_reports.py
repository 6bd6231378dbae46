# SPDX-License-Identifier: Apache-2.0
"""What stays of a fleet run: reports, metrics, a program that is told, older archives that go, and the nightly timer."""

import csv
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess

import pytest

import json_contract
import tool
from fleet_tool import EmulatedFleet, FleetRun, folder_of

UNITS = tool.ROOT / "packaging" / "systemd"
DONE, LOCAL, SOME, NONE = 0, 8, 20, 21


@pytest.fixture(name="fleet")
def _fleet(tmp_path, state):
    started = EmulatedFleet(tmp_path, "--count", "4", "--gathering", "0")
    yield started
    started.stop()


@pytest.fixture(name="collect")
def _collect(tmp_path, fleet):
    def run(*arguments):
        ended = FleetRun(["collect", fleet.inventory, "--credentials", fleet.credentials, "--output",
                          tmp_path / "runs", "--json", *arguments]).end()
        return ended
    return run


def kemffdc(*arguments):
    return subprocess.run([tool.TOOL, *map(str, arguments)], env=tool.run_environment(), capture_output=True, text=True,
                          timeout=120, check=False)


def report_of(folder):
    return json_contract.check_report((folder / "report.json").read_text(encoding="utf-8"))


def test_a_run_leaves_reports_of_every_host(collect):
    ended = collect()
    assert ended.code == DONE, ended.err
    folder = folder_of(ended)
    report = report_of(folder)
    assert [host["outcome"] for host in report["hosts"]] == ["downloaded"] * 4
    for host in report["hosts"]:
        assert pathlib.Path(host["archive"]).stat().st_size == host["size"]
        assert pathlib.Path(host["record"]).is_file()
        assert host["bmc"]["serial"]
        states = [change["state"] for change in host["states"]]
        assert states[-1] == "done" and states.index("gathering") < states.index("transferring")
    page = (folder / "report.html").read_text(encoding="utf-8")
    for link in re.findall(r'href="([^"#]*)"', page[page.index("<main>"):]):
        assert (folder / link).is_file(), link
    with open(folder / "report.csv", newline="", encoding="utf-8") as file:
        assert [row["outcome"] for row in csv.DictReader(file)] == ["downloaded"] * 4


def test_a_report_can_be_had_of_a_run_that_was_killed(collect, fleet, tmp_path):
    ended = collect()
    folder = folder_of(ended)
    kept = (folder / "report.json").read_text(encoding="utf-8")
    for name in ("report.json", "report.csv", "report.html"):
        (folder / name).unlink()
    again = kemffdc("fleet", "report", "--json")
    assert again.returncode == DONE, again.stderr
    then, now = json.loads(kept), json_contract.check_report(again.stdout)
    assert now["hosts"] == then["hosts"]


def test_metrics_are_as_prometheus_reads_them(collect, tmp_path):
    promtool = pathlib.Path(os.environ.get("VARNEX_PEERS", "")) / "usr" / "bin" / "promtool"
    if not promtool.is_file():
        pytest.skip("promtool is none of the peers")
    metrics = tmp_path / "ffdc.prom"
    ended = collect("--metrics", metrics)
    assert ended.code == DONE, ended.err
    text = metrics.read_text(encoding="utf-8")
    checked = subprocess.run([promtool, "check", "metrics"], input=text, capture_output=True, text=True, timeout=60,
                             check=False)
    assert (checked.returncode, checked.stdout, checked.stderr) == (0, "", "")
    for host in report_of(folder_of(ended))["hosts"]:
        age = re.search(rf'newest_archive_age_seconds{{inventory="[^"]*",host="{host["name"]}",group="[^"]*"}} (\S+)', text)
        assert 0 <= float(age[1]) < 600
    assert list(tmp_path.glob(".ffdc*")) == []


def test_a_program_is_told_where_the_report_is(collect, tmp_path):
    script = tmp_path / "tell"
    script.write_text(f"#!/bin/sh\nprintf '%s\\n' \"$@\" > {tmp_path}/told\n")
    script.chmod(0o755)
    ended = collect("--on-finish", f"{script} --to 'some one'")
    assert ended.code == DONE, ended.err
    assert (tmp_path / "told").read_text().splitlines() == ["--to", "some one", str(folder_of(ended) / "report.json")]


def test_a_program_that_fails_is_told_and_changes_nothing(collect):
    ended = collect("--on-finish", "/no/such/program")
    assert ended.code == DONE
    assert "The program of --on-finish, /no/such/program, cannot be run" in ended.err
    assert report_of(folder_of(ended))["totals"]["done"] == 4


def test_older_archives_go_and_the_history_says_so(collect):
    first = folder_of(collect())
    gone = [host["archive"] for host in report_of(first)["hosts"]]
    second = collect("--keep", "1")
    assert second.code == DONE
    assert "4 older archives were removed" in second.err
    assert not first.exists()
    assert all(pathlib.Path(host["archive"]).is_file() for host in report_of(folder_of(second))["hosts"])
    history = json.loads(kemffdc("history", "--json").stdout)
    removed = {archive["path"]: archive["removed"] for run in history["runs"] for archive in run["archives"]}
    assert all(removed[path] for path in gone)
    assert sum(value is None for value in removed.values()) == 4
    verified = kemffdc("verify")
    assert verified.returncode == DONE, verified.stdout


def test_prune_tells_before_it_removes(collect):
    first = folder_of(collect())
    collect()
    told = json.loads(json_line(kemffdc("fleet", "prune", "--keep", "1", "--dry-run", "--json").stdout, "fleet_prune"))
    assert told["dry_run"] and len(told["files"]) == 4 and told["folders"] == [str(first)]
    assert first.is_dir()
    done = json.loads(json_line(kemffdc("fleet", "prune", "--keep", "1", "--json").stdout, "fleet_prune"))
    assert done["files"] == told["files"] and not first.exists()


def json_line(line, kind):
    json_contract.check(line.rstrip("\n"), kind)
    return line


def test_runs_of_two_stations_become_one_report(collect, tmp_path):
    first = collect("--shard", "1/2")
    second = collect("--shard", "2/2")
    assert first.code == second.code == DONE
    merged = kemffdc("fleet", "merge", folder_of(first), folder_of(second), "--output", tmp_path / "all")
    assert merged.returncode == DONE, merged.stderr
    report = report_of(tmp_path / "all")
    assert report["totals"]["done"] == 4 and len(report["runs"]) == 2
    assert [run["shard"] for run in report["runs"]] == ["1/2", "2/2"]
    page = (tmp_path / "all" / "report.html").read_text(encoding="utf-8")
    links = re.findall(r'href="(\.\./[^"]*)"', page)
    assert len(links) == 8 and all((tmp_path / "all" / link).is_file() for link in links)


# --- the example for systemd ------------------------------------------------------------------


@pytest.mark.skipif(shutil.which("systemd-analyze") is None, reason="systemd-analyze is not here")
def test_systemd_takes_the_units(tmp_path):
    for unit in UNITS.iterdir():
        text = unit.read_text(encoding="utf-8").replace("/usr/bin/kemffdc", "/usr/bin/true").replace("User=kemffdc", "User=root")
        (tmp_path / unit.name).write_text(text, encoding="utf-8")
    units = sorted(tmp_path.glob("kemffdc-fleet.*"))
    assert len(units) == 2
    checked = subprocess.run(["systemd-analyze", "verify", "--recursive-errors=no", *units], capture_output=True,
                             text=True, timeout=60, check=False)
    assert (checked.returncode, checked.stderr) == (0, "")


def test_the_tool_takes_the_command_of_the_unit(tmp_path):
    text = (UNITS / "kemffdc-fleet.service").read_text(encoding="utf-8").replace("\\\n", " ")
    words = shlex.split(re.search(r"^ExecStart=(.*)$", text, re.MULTILINE)[1])
    assert words[0] == "/usr/bin/kemffdc"
    words = [word.replace("/etc/", f"{tmp_path}/etc/").replace("/var/", f"{tmp_path}/var/") for word in words[1:]]
    ended = kemffdc(*words)
    assert ended.returncode == LOCAL, ended.stderr
    assert "fleet.yaml does not exist" in ended.stderr
