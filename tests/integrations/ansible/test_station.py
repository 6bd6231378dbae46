# SPDX-License-Identifier: Apache-2.0
"""The role that makes a station: what is there afterwards, who may read it, and that it stays so."""

import pathlib
import pwd
import shutil
import stat
import subprocess

import pytest
import yaml

import tool

PASSWORD = "fi9Phoh0-roo7"
LIST = "groups:\n  lab:\n    credential: lab\n    hosts: bmc[1-3].example\n"


@pytest.fixture
def play(ansible, tmp_path):
    """Has the role make the station; more of its variables as keywords."""
    (tmp_path / "fleet.yaml").write_text(LIST)

    def play(station, *arguments, **variables):
        variables = {
            "station_executable": tool.TOOL,
            "station_folder": "/srv/kemffdc",
            "station_configuration": {"defaults": {"via": "redfish"}, "hosts": {"*.example": {"port": 8443}}},
            "station_inventory": str(tmp_path / "fleet.yaml"),
            "station_credentials": {
                "lab": {"user": "service", "password": PASSWORD},
                "other": {"user": "admin", "password_command": ["pass", "show", "bmc"]},
            },
            "station_timer": True, "station_systemd": False, "station_shard": "2/3",
            **variables,
        }
        inventory = {"hosts": {"station": station.host()}, "vars": variables}
        roles = [{"hosts": "all", "gather_facts": False, "roles": ["varnex.ffdc.station"]}]
        return ansible.play(roles, inventory, *arguments)

    return play


def changed(played):
    return sorted({r["task"] for r in played.results if r["result"].get("changed")})


def rights(path):
    found = path.lstat()
    return stat.filemode(found.st_mode), found.st_uid


def account_of(station):
    """Its number, in what the station has as /etc."""
    lines = station.path("/etc/passwd").read_text().splitlines()
    return next(int(line.split(":")[2]) for line in lines if line.startswith("kemffdc:"))


def test_a_station_is_made_once(start_station, play):
    station = start_station()

    predicted, first, second = play(station, "--check"), play(station), play(station, "--diff")

    assert (first.code, second.code) == (0, 0), first.shown + second.shown
    assert predicted.code == 0, predicted.shown
    assert changed(first) and not changed(second), second.shown
    account = account_of(station)
    assert rights(station.path("/srv/kemffdc")) == ("drwx------", account)
    assert rights(station.path("/srv/kemffdc/runs")) == ("drwx------", account)
    assert rights(station.path("/etc/kemffdc/kemffdc.conf")) == ("-rw-r-----", 0)
    assert rights(station.path("/etc/kemffdc/fleet.yaml")) == ("-rw-r-----", 0)
    assert rights(station.path("/etc/kemffdc/credentials.yaml")) == ("-rw-------", account)
    assert rights(station.path("/etc/kemffdc/passwords")) == ("drwx------", account)
    assert rights(station.path("/etc/kemffdc/passwords/lab")) == ("-rw-------", account)
    assert "kemffdc" not in [entry.pw_name for entry in pwd.getpwall()]


def test_what_the_role_writes_the_tool_reads(start_station, play, ansible):
    station = start_station()
    assert play(station).code == 0

    credentials = yaml.safe_load(station.path("/etc/kemffdc/credentials.yaml").read_text())
    assert credentials == {
        "lab": {"user": "service", "password_file": "/etc/kemffdc/passwords/lab"},
        "other": {"user": "admin", "password_command": ["pass", "show", "bmc"]},
    }
    assert station.path("/etc/kemffdc/passwords/lab").read_text() == PASSWORD + "\n"
    asked = ansible.play(
        [{"hosts": "all", "gather_facts": False, "tasks": [
            {"name": "hosts", "ansible.builtin.command": {"argv": [
                "setpriv", "--reuid", "kemffdc", "--regid", "kemffdc", "--clear-groups", "env", "HOME=/srv/kemffdc",
                tool.TOOL, "fleet", "hosts", "/etc/kemffdc/fleet.yaml",
                "--credentials", "/etc/kemffdc/credentials.yaml", "--shard", "1/1", "--json"]}}]}],
        {"hosts": {"station": station.host()}})
    told = asked.of("hosts")
    assert told["rc"] == 0, told
    assert "/etc/kemffdc/passwords/lab" in told["stdout"] and "8443" in told["stdout"]


def test_no_password_is_shown_and_a_changed_one_is_written(start_station, play):
    station = start_station()
    other = "ooPh3ohz-eiw4"

    shown = play(station, "-vvvv", "--diff").shown
    again = play(station, "-vvvv", "--diff", station_credentials={"lab": {"user": "service", "password": other}})

    assert PASSWORD not in shown and other not in again.shown
    assert station.path("/etc/kemffdc/passwords/lab").read_text() == other + "\n"
    for left in (station.folder / "remote").rglob("*"):
        assert not left.is_file() or PASSWORD.encode() not in left.read_bytes(), left


def test_the_units_are_systemds(start_station, play):
    if not shutil.which("systemd-analyze"):
        pytest.skip("systemd-analyze is not here")
    station = start_station()
    metrics = "/srv/kemffdc/kemffdc.prom"
    assert play(station, station_metrics=metrics, station_schedule="Mon *-*-* 03:30:00").code == 0
    units = station.path("/etc/systemd/system")

    verified = subprocess.run(
        ["systemd-analyze", "verify", "--man=no", units / "kemffdc-fleet.service", units / "kemffdc-fleet.timer"],
        capture_output=True, text=True, timeout=60, check=False)
    when = subprocess.run(["systemd-analyze", "calendar", "Mon *-*-* 03:30:00"], capture_output=True, timeout=60,
                          check=False)

    assert (verified.returncode, verified.stderr) == (0, "")
    assert when.returncode == 0
    service = (units / "kemffdc-fleet.service").read_text()
    words = next(line for line in service.splitlines() if line.startswith("ExecStart=")).split()
    assert words[0] == f"ExecStart={tool.TOOL}"
    assert words[1:] == [
        "fleet", "collect", "/etc/kemffdc/fleet.yaml", "--credentials", "/etc/kemffdc/credentials.yaml",
        "--shard", "2/3", "--output", "/srv/kemffdc/runs", "--keep", "0", "--metrics", metrics]
    assert "OnCalendar=Mon *-*-* 03:30:00" in (units / "kemffdc-fleet.timer").read_text()


def test_an_installation_comes_from_an_archive(start_station, play, tmp_path):
    station = start_station()
    program = tmp_path / "tree" / "bin" / "kemffdc"
    program.parent.mkdir(parents=True)
    program.write_text("#!/bin/sh\necho kemffdc 1.0.0\n")
    program.chmod(0o755)
    archive = tmp_path / "kemffdc.tar.gz"
    subprocess.run(["tar", "-czf", archive, "-C", program.parents[1], "bin"], check=True, timeout=60)
    (station.path("/srv") / "share").mkdir()
    options = {"station_archive": str(archive), "station_prefix": "/srv", "station_executable": "/srv/bin/kemffdc"}

    first, second = play(station, **options), play(station, **options)

    assert (first.code, second.code) == (0, 0), first.shown
    assert pathlib.Path(station.path("/srv/bin/kemffdc")).read_bytes() == program.read_bytes()
    assert "Unpack it" in changed(first) and changed(second) == []


def test_what_is_no_variable_of_the_role_is_told(start_station, play):
    station = start_station()

    wrong = play(station, station_timer="sometimes")

    assert wrong.code != 0
    assert "station_timer" in wrong.shown and "bool" in wrong.shown
    assert not station.path("/etc/kemffdc").exists()
