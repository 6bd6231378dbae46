# SPDX-License-Identifier: Apache-2.0
"""What ends a fleet run, or one of its workers, before its time; nothing that was done is lost, and resume goes on."""

import os
import signal
import time

import tool
from fleet_tool import Journal, archives, folder_of, is_alive, wait_until

DONE, USAGE, LOCAL, NONE, INTERRUPTED = 0, 2, 8, 21, 130


def test_the_deadline_of_the_run_ends_it(fleet, run):
    bmcs = fleet("--count", "6", "--gathering", "600")

    ended = run("collect", bmcs, "--run-deadline", "12", "--gathering", "4").end()

    assert ended.code == NONE
    assert 12 <= ended.seconds < 12 + 3 * tool.SLOWNESS
    outcomes = list(ended.outcomes().values())
    assert outcomes.count("deadline") == 4 and outcomes.count("not-tried") == 2


def test_the_deadline_of_a_host_is_its_own(fleet, run):
    bmcs = fleet("--count", "2", "--gathering", "600")

    ended = run("collect", bmcs, "--host-deadline", "5").end()

    assert ended.code == NONE
    assert set(ended.outcomes().values()) == {"deadline"}


def test_ctrl_c_ends_all_within_a_second_and_resume_goes_on(fleet, run, state):
    bmcs = fleet("--count", "8", "--gathering", "16")
    begun = run("collect", bmcs)
    journal = Journal(state)
    wait_until(lambda: journal.states()["gathering"] == 8)
    workers = begun.workers()
    sent = time.monotonic()
    os.killpg(begun.process.pid, signal.SIGINT)

    ended = begun.end()

    assert time.monotonic() - sent < 2 * tool.SLOWNESS
    assert ended.code == INTERRUPTED
    assert len(workers) == 8 and not any(is_alive(pid) for pid in workers)
    assert set(ended.outcomes().values()) == {"interrupted"}
    assert (folder_of(ended) / "report.json").exists()
    assert f"kemffdc fleet resume {ended.result['fleet']}" in ended.err

    resumed = run("resume", None).end()

    assert resumed.code == DONE, resumed.err
    assert set(resumed.outcomes().values()) == {"downloaded"}
    assert set(bmcs.exports().values()) == {1}
    assert folder_of(resumed) == folder_of(ended)


def test_kill_of_the_conductor_ends_workers_and_loses_nothing(fleet, run, state):
    bmcs = fleet("--count", "8", "--gathering", "12")
    begun = run("collect", bmcs)
    journal = Journal(state)
    wait_until(lambda: journal.states()["gathering"] + journal.states()["exporting"] >= 5)

    workers = begun.kill()

    assert workers
    wait_until(lambda: not any(is_alive(pid) for pid in workers), 2)
    resumed = run("resume", None).end()
    assert resumed.code == DONE, resumed.err
    assert set(bmcs.exports().values()) == {1}
    folder = folder_of(resumed)
    for bmc in bmcs.bmcs:
        (archive,) = archives(folder, bmc["name"])
        assert archive.suffix == ".gz"


def test_what_is_done_is_not_asked_again(fleet, run, state):
    bmcs = fleet("--count", "3", "--gathering", "1")
    ended = run("collect", bmcs).end()
    assert ended.code == DONE, ended.err
    before = [len(bmcs.requests(bmc)) for bmc in bmcs.bmcs]

    none = run("resume", None).end()
    named = run("resume", None, str(ended.result["fleet"])).end()

    assert none.code == USAGE and "There is no fleet run that has not ended well." in none.err
    assert named.code == USAGE and "has nothing left to do" in named.err
    assert [len(bmcs.requests(bmc)) for bmc in bmcs.bmcs] == before


def test_a_run_that_works_cannot_be_resumed(fleet, run, state):
    bmcs = fleet("--count", "2", "--gathering", "600")
    begun = run("collect", bmcs)
    wait_until(lambda: sum(Journal(state).states().values()) == 2)

    refused = run("resume", None).end()

    assert refused.code == LOCAL
    assert "Fleet run 1 is still at work" in refused.err
    assert refused.result["exit_code"] == LOCAL
    begun.kill()


def test_a_worker_that_is_killed_is_tried_again(fleet, run, state):
    bmcs = fleet("--count", "3", "--gathering", "10")
    begun = run("collect", bmcs, "--retry-pause", "1")
    wait_until(lambda: Journal(state).states()["gathering"] == 3)
    os.kill(begun.workers()[0], signal.SIGKILL)

    ended = begun.end()

    assert ended.code == DONE, ended.err
    assert sorted(host["attempts"] for host in ended.result["hosts"]) == [1, 1, 2]
    assert set(bmcs.exports().values()) == {1}
