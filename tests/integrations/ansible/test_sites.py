# SPDX-License-Identifier: Apache-2.0
"""Many BMCs from one station, and three stations that are reached by SSH: each BMC gathers once."""

import json
import os
import pathlib
import signal
import time

import controller
import stations
import tool

BMCS = 100
FORKS = 50


def password_of(ready):
    return pathlib.Path(ready["credentials"]).with_name("fleet.password").read_text().strip()


def gathered(ready):
    return {bmc["name"]: controller.gathered(bmc) for bmc in ready["bmcs"]}


def test_a_hundred_bmcs_with_fifty_forks(ansible, start_fleet, tmp_path):
    ready = start_fleet("--count", str(BMCS), "--gathering", "1")
    inventory = {
        "children": {"bmcs": {"hosts": {
            bmc["name"]: {"bmc_address": bmc["address"], "bmc_port": bmc["port"]} for bmc in ready["bmcs"]}}},
        "vars": {
            "ansible_connection": "local", "bmc_via": "redfish", "bmc_user": ready["user"],
            "bmc_password": password_of(ready), "ffdc_output": str(tmp_path / "archives"),
            "ffdc_executable": tool.TOOL, "ffdc_delay": 1,
        },
    }
    state = {"XDG_STATE_HOME": str(tmp_path / "state")}

    started = time.monotonic()
    first = ansible.play("varnex.ffdc.one_station", inventory, "--forks", str(FORKS), environment=state)
    seconds = time.monotonic() - started
    second = ansible.play("varnex.ffdc.one_station", inventory, "--limit", "bmc04*", environment=state)

    print(f"{BMCS} BMCs with {FORKS} forks: {seconds:.1f} s")
    assert (first.code, second.code) == (0, 0), first.shown[-3000:] + second.shown[-3000:]
    assert [r["result"]["changed"] for r in first.results] == [True] * BMCS
    assert [r["result"]["changed"] for r in second.results] == [False] * 10
    assert len(tool.archives_in(tmp_path / "archives")) == BMCS
    assert set(gathered(ready).values()) == {1}


def sites(ready, three, **more):
    """The inventory of three stations that divide all BMCs among them."""
    return {
        "children": {"stations": {"hosts": {
            station.name: {**station.host(), "station_shard": f"{n}/3"} for n, station in enumerate(three, 1)}}},
        "vars": {
            "station_executable": tool.TOOL, "station_account": "root", "station_runs": "/srv/runs",
            "ffdc_list": ready["inventory"], "ffdc_credentials": ready["credentials"],
            "ffdc_settings": {"interval": 1}, **more,
        },
    }


def test_stations_are_lost_in_the_middle_and_the_second_play_finishes(ansible, start_fleet, start_station, tmp_path):
    ready = start_fleet("--count", "12", "--gathering", "8", "--inventory", tmp_path / "fleet.yaml")
    well, cut_off, broken = three = [start_station() for _ in range(3)]
    inventory = sites(ready, three, ffdc_reports=str(tmp_path / "reports"))
    playing = ansible.start("varnex.ffdc.three_sites", inventory)
    stations.wait_until(lambda: all(gathered(ready).values()), "every BMC gathers")
    for station in (cut_off, broken):
        station.stop()
    (conductor,) = broken.conductors()
    os.kill(conductor, signal.SIGKILL)
    first = playing.end()
    for station in (cut_off, broken):
        station.start()

    second = ansible.play("varnex.ffdc.three_sites", inventory)
    third = ansible.play("varnex.ffdc.three_sites", inventory)

    lost = sorted(r["host"] for r in first.results if r["status"] == "unreachable")
    assert (first.code, lost) == (4, [cut_off.name, broken.name]), first.shown
    assert first.of("Gather", well.name)["changed"]
    assert (second.code, third.code) == (0, 0), second.shown + third.shown
    shares = {station: second.of("Gather", station.name) for station in three}
    assert [shares[station]["resumed"] for station in three] == [False, False, True]
    assert not shares[well]["changed"] and shares[broken]["changed"]
    assert not any(r["result"].get("changed") for r in third.results)
    assert set(gathered(ready).values()) == {1} and sum(share["done"] for share in shares.values()) == len(ready["bmcs"])
    for station, share in shares.items():
        report = json.loads((tmp_path / "reports" / station.name / "report.json").read_text())
        assert len(report["hosts"]) == share["total"] == share["done"]
        assert len(list(station.path("/srv/runs").glob("*/*/*.json"))) == share["total"]
