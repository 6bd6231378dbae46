# SPDX-License-Identifier: Apache-2.0
"""The session that the library opens for a download does not stay open on the BMC."""

import json
import ssl
import urllib.request

import pytest

import tool

SESSIONS = "/redfish/v1/SessionService/Sessions"
SLOW = {"archive": {"size": 3000000}, "answers": {"GET /download/*": [{"rate": 300000}]}}


def ask(bmc, method, path, user, password, body=None):
    """A request of somebody else's."""
    context = ssl.create_default_context()
    context.check_hostname, context.verify_mode = False, ssl.CERT_NONE
    passwords = urllib.request.HTTPPasswordMgrWithPriorAuth()
    url = f"https://{bmc.address}:{bmc.port}{path}"
    passwords.add_password(None, url, user, password, is_authenticated=True)
    opener = urllib.request.build_opener(
        urllib.request.HTTPSHandler(context=context), urllib.request.HTTPBasicAuthHandler(passwords))
    request = urllib.request.Request(url, json.dumps(body).encode() if body else None, method=method)
    with opener.open(request, timeout=20) as answer:
        return json.loads(answer.read() or b"{}")


def open_session(bmc, user=None, password=None):
    user, password = user or bmc.user, password or bmc.password
    return ask(bmc, "POST", SESSIONS, user, password, {"UserName": user, "Password": password})["@odata.id"]


def sessions(bmc):
    return {member["@odata.id"] for member in ask(bmc, "GET", SESSIONS, bmc.user, bmc.password)["Members"]}


def deleted(bmc):
    return [r["path"] for r in bmc.requests("DELETE")]


def while_it_downloads(bmc, arguments, act, **options):
    """Runs the tool, and something else once its download has begun."""
    running = tool.Running(arguments, password=bmc.password, **options)
    bmc.wait_for("/download/")
    act(running)
    return running.end(60)


def test_the_session_of_the_download_is_closed(bmc, tmp_path):
    ended = tool.run(tool.collect(bmc, tmp_path), password=bmc.password)
    assert ended.code == 0, ended.err
    assert len(deleted(bmc)) == 1
    assert sessions(bmc) == set()
    assert "Note" not in ended.err


@pytest.mark.parametrize("version", ["1.5.0", "1.15.0"])
def test_sessions_that_were_there_before_stay(start_bmc, tmp_path, version):
    bmc = start_bmc({"redfish": {"version": version, "sessions": {"open": ["admin", "admin"]}}})
    before = sessions(bmc)
    assert len(before) == 2
    assert tool.run(tool.collect(bmc, tmp_path), password=bmc.password).code == 0
    assert sessions(bmc) == before


def test_a_session_that_another_user_opens_meanwhile_stays(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {**SLOW, "accounts": {"olga": {"password": "abcdefgh", "role": "Operator"}}}})
    others = []
    ended = while_it_downloads(bmc, tool.collect(bmc, tmp_path),
                               lambda _: others.append(open_session(bmc, "olga", "abcdefgh")))
    assert ended.code == 0, ended.err
    assert sessions(bmc) == set(others)


def test_of_two_that_it_could_be_none_is_closed_and_that_is_said(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": SLOW})
    ended = while_it_downloads(bmc, tool.collect(bmc, tmp_path), lambda _: open_session(bmc))
    assert ended.code == 0, ended.err
    assert deleted(bmc) == [] and len(sessions(bmc)) == 2
    assert ('Note: The session of the download stays open on the BMC until it times out: user "admin" has opened 2 '
            "sessions meanwhile, and which one it is cannot be told.") in ended.err


def test_after_a_signal_it_is_closed_too(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": SLOW})
    ended = while_it_downloads(bmc, tool.collect(bmc, tmp_path), lambda running: running.interrupt())
    assert ended.code == 130
    assert len(deleted(bmc)) == 1
    assert sessions(bmc) == set()


def test_at_the_deadline_it_is_closed_too(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {**SLOW, "answers": {"GET /download/*": [{"hang_after": 1000}]}}})
    ended = tool.run(tool.collect(bmc, tmp_path, "--deadline", f"{int(3 * tool.SLOWNESS)}s"), password=bmc.password)
    assert ended.code == 6
    assert sessions(bmc) == set()


def test_where_the_download_fails_it_is_closed_too(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"answers": {"GET /download/*": [{"status": 404, "repeat": True}]}}})
    assert tool.run(tool.collect(bmc, tmp_path), password=bmc.password).code == 7
    assert sessions(bmc) == set()


def test_a_bmc_that_lists_no_sessions_costs_a_note_alone(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"answers": {f"GET {SESSIONS}": [{"status": 403, "repeat": True}]}}})
    ended = tool.run(tool.collect(bmc, tmp_path), password=bmc.password)
    assert ended.code == 0, ended.err
    assert "Note: The session of the download stays open on the BMC until it times out: its sessions cannot be " \
           "listed (HTTP 403)." in ended.err
    assert deleted(bmc) == []


@pytest.mark.parametrize("member", ["/redfish/v1/Managers/1", f"{SESSIONS}/../../Managers/1", "//other/x", 7, None])
def test_nothing_but_a_session_is_ever_deleted(start_bmc, tmp_path, member):
    bmc = start_bmc({"redfish": {"answers": {f"GET {SESSIONS}": [
        {}, {"json": {"Members": [{"@odata.id": member}]}, "repeat": True}]}}})
    assert tool.run(tool.collect(bmc, tmp_path), password=bmc.password).code == 0
    assert deleted(bmc) == []


def test_a_list_in_pages_is_read_to_its_end(start_bmc, tmp_path):
    pages = [{"json": {"Members": [], "Members@odata.nextLink": f"{SESSIONS}?$skip=0"}}, {}]
    bmc = start_bmc({"redfish": {"answers": {f"GET {SESSIONS}": [{}, *pages]}}})
    assert tool.run(tool.collect(bmc, tmp_path), password=bmc.password).code == 0
    asked = [r for r in bmc.requests("GET") if r["path"] == SESSIONS]
    assert len(asked) == 3 and asked[2]["query"] == "$skip=0"


def test_pages_without_end_are_left(start_bmc, tmp_path):
    page = {"json": {"Members": [], "Members@odata.nextLink": SESSIONS}, "repeat": True}
    bmc = start_bmc({"redfish": {"answers": {f"GET {SESSIONS}": [page]}}})
    ended = tool.run(tool.collect(bmc, tmp_path), password=bmc.password)
    assert ended.code == 0, ended.err
    assert len([r for r in bmc.requests("GET") if r["path"] == SESSIONS]) <= 32


def test_a_silent_session_service_costs_seconds_and_not_the_archive(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"answers": {f"GET {SESSIONS}": [{}, {"hang": True, "repeat": True}]}}})
    ended = tool.run(tool.collect(bmc, tmp_path), password=bmc.password)
    assert ended.code == 0, ended.err
    assert "cannot be listed (no answer)" in ended.err
    assert ended.seconds < 14 * tool.SLOWNESS


def test_without_a_download_nobody_asks_for_sessions(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"task_states": ["Running", "Exception"]}})
    assert tool.run(tool.collect(bmc, tmp_path), password=bmc.password).code == 5
    assert not [r for r in bmc.requests() if "Sessions" in r["path"]]


def test_many_runs_one_behind_the_other_leave_nothing(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"sessions": {"limit": 2, "when_full": "refuse"}}})
    codes = [tool.run(tool.collect(bmc, tmp_path / str(n)), password=bmc.password).code for n in range(4)]
    assert codes == [0, 0, 0, 0]
