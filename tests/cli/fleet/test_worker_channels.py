# SPDX-License-Identifier: Apache-2.0
"""A worker over the other channels: its states, its turn, and what it tells of gathering again."""

import pytest

import cim_tool
import ipmi_tool
from worker import Fleet, Worker, collect

STATES = ["reached", "exporting", "gathering", "waiting", "transferring"]
AGAIN = "An earlier attempt had made the BMC gather"


@pytest.fixture(name="fleet")
def _fleet(state, tmp_path):
    return Fleet(state, tmp_path)


def over_ipmi(fleet, bmc, tmp_path, **more):
    arguments = ["collect", "--via", "ipmi", bmc.address, "--port", str(ipmi_tool.port_of(bmc)), "--user", bmc.user]
    return Worker(arguments, fleet, bmc.password,
                  environment={"VARNEX_KNOWN_HOSTS": str(tmp_path / "known_hosts")}, **more)


def file_requests(bmc):
    """Of the file service since the run has begun to gather; it is looked at before, too."""
    asked = ipmi_tool.requests(bmc, "ipmi")
    return [r for r in ipmi_tool.requests(bmc, "sftp")] if asked else []


def test_over_ipmi_the_files_wait_for_their_turn(fleet, tmp_path):
    with ipmi_tool.started() as bmc:
        worker = over_ipmi(fleet, bmc, tmp_path, gate=True)
        worker.wait_for("turn")
        assert fleet.states() == STATES[:-1]
        before = file_requests(bmc)
        assert not [r for r in before if r.get("operation") == "open"], before
        worker.say("go")
        assert worker.end()["outcome"] == "downloaded"
        assert fleet.states() == [*STATES, "done"]
        (folder,) = [path for path in fleet.folder.iterdir() if path.is_dir()]
        assert ipmi_tool.fetched(folder) == ipmi_tool.served(bmc)
        assert (fleet.host()["archive"], fleet.host()["sha256"]) == (str(folder), None)


def test_over_ipmi_it_gathers_again_and_says_so(fleet, tmp_path):
    with ipmi_tool.started() as bmc:
        worker = over_ipmi(fleet, bmc, tmp_path, gate=True)
        worker.wait_for("turn")
        worker.kill()
        result = over_ipmi(fleet, bmc, tmp_path).end()
        assert result["outcome"] == "downloaded"
        assert any(AGAIN in note and "over ipmi" in note for note in result["bmc"]["notes"]), result["bmc"]["notes"]
        assert len([path for path in fleet.folder.iterdir() if path.is_dir()]) == 1
        assert fleet.is_sound()


@pytest.fixture(name="store")
def _store(tmp_path):
    (tmp_path / "store").mkdir()
    store = cim_tool.Store(tmp_path / "store")
    yield store
    store.stop()


def test_over_cim_nothing_waits_and_it_exports_again(fleet, start_bmc, store):
    bmc = start_bmc()
    account = store.account()
    user = account[account.index("--export-user") + 1]
    arguments = ["collect", "--via", "cim", bmc.address, "--port", str(cim_tool.port_of(bmc)), "--user", bmc.user,
                 "--export-uri", store.uri("in/"), "--export-user", user]
    (store.folder / "in").mkdir()

    def start():
        return Worker(arguments, fleet, bmc.password, gate=True, output=False,
                      export_password=cim_tool.STORE_PASSWORD)

    worker = start()
    worker.reach("gathering")
    worker.kill()
    result = start().end()
    assert result["outcome"] == "exported", result["reason"]
    assert any(AGAIN in note and "over cim" in note for note in result["bmc"]["notes"]), result["bmc"]["notes"]
    assert fleet.states()[-4:] == ["reached", "exporting", "gathering", "done"]
    assert fleet.host()["export_uri"] == store.uri("in/")


def test_what_the_bmc_sends_itself_waits_for_no_turn(fleet, start_bmc, store):
    bmc = start_bmc({"redfish": {"task_states": ["Running", "Completed"]}})
    account = store.account()
    user = account[account.index("--export-user") + 1]
    worker = Worker(collect(bmc, "--interval", "1", "--export-uri", store.uri("x.tgz"), "--export-user", user), fleet,
                    bmc.password, gate=True, output=False, export_password=cim_tool.STORE_PASSWORD)
    assert worker.end()["outcome"] == "exported"
    assert worker.state_events() == ["reached", "exporting", "gathering"]
    assert fleet.host()["export_uri"] == store.uri("x.tgz")


def test_a_way_that_was_searched_for_is_gone_on_with(fleet, start_bmc):
    bmc = start_bmc({"redfish": {"task_states": ["Running"] * 30 + ["Completed"], "task_step_seconds": 0.1}})
    arguments = collect(bmc, "--interval", "1")
    worker = Worker(arguments, fleet, bmc.password)
    worker.reach("gathering")
    worker.kill()
    with fleet.connect() as database:
        database.execute("UPDATE runs SET port = ? WHERE fleet IS NOT NULL", (bmc.port,))
    searched = ["collect", "--via", "auto", bmc.address, "--user", bmc.user, "--interval", "1"]
    result = Worker(searched, fleet, bmc.password).end()
    assert (result["outcome"], result["channel"], result["port"]) == ("downloaded", "redfish", bmc.port)
    assert len([r for r in bmc.requests("POST") if "ExportFFDCData" in r["path"]]) == 1
    assert len(fleet.archives()) == 1
