# SPDX-License-Identifier: Apache-2.0
"""The standard's action, LogService.CollectDiagnosticData, in every form of its answer."""

import hashlib
import json
import pathlib
import re

import pytest

import tool

DUMP = "/redfish/v1/Managers/1/LogServices/Dump"
CRASH = "/redfish/v1/Systems/1/LogServices/Crash"
COLLECT = "POST */LogService.CollectDiagnosticData"
SESSIONS = "/redfish/v1/SessionService/Sessions"
STATES = ["New", "Running", "Completed"]


def scenario(services=None, states=STATES, answers=None, download=None, **diagnostics):
    redfish = {"export_action": "missing", "task_states": list(states),
               "diagnostics": {"services": services or [{}], "retry_after": 0, **diagnostics}}
    if answers:
        redfish["answers"] = answers
    if download:
        redfish["download"] = download
    return {"redfish": redfish}


def collect(bmc, output, *arguments, **options):
    return tool.run(tool.collect(bmc, output, "--json", *arguments), password=bmc.password, **options)


def asked(bmc):
    """The bodies of the action's requests."""
    return [json.loads(r["body"]) for r in bmc.requests("POST") if "CollectDiagnosticData" in r["path"]]


def data_of(bmc, number=1, kind="tar.gz", log="Dump"):
    return (pathlib.Path(bmc.ready["requests"]).parent / "diagnostics" / f"{log}-{number}.{kind}").read_bytes()


def arrived(ended):
    return pathlib.Path(ended.json["path"]).read_bytes()


# --- forms of the answer --------------------------------------------------------------------------


FORMS = [(answer, result) for answer in ("monitor", "task", "both") for result in ("entry", "created", "none", "task")]


@pytest.mark.parametrize("answer, result", [*FORMS, ("entry", "entry"), ("created", "entry"), ("none", "entry")])
def test_each_form_of_answer_leads_to_the_data(start_bmc, tmp_path, answer, result):
    bmc = start_bmc(scenario(answer=answer, result=result))
    ended = collect(bmc, tmp_path)
    assert ended.code == 0, ended.err
    account = ended.json
    assert (account["outcome"], account["operation"], account["log_kind"]) == ("downloaded", "standard", "full")
    assert arrived(ended) == data_of(bmc)
    assert re.fullmatch(r"127\.0\.0\.1_\d{8}T\d{6}Z_Dump_1\.tar\.gz", pathlib.Path(account["path"]).name)
    assert account["remote_path"] == DUMP + "/Entries/1/attachment"
    assert [step["name"] for step in account["steps"]] == ["preflight", "export", "gather", "download", "verify"]
    assert asked(bmc) == [{"DiagnosticDataType": "Manager"}]
    (one,) = account["collections"]
    assert (one["log_service"], one["type"], one["entry"], one["outcome"]) == (
        DUMP, "Manager", DUMP + "/Entries/1", "ok")
    assert tool.archives_in(tmp_path) == [pathlib.Path(account["path"]).name]


@pytest.mark.parametrize("named_by", ["created-resources", "header", "message", "nothing"])
def test_a_task_names_its_entry_or_the_log_tells(start_bmc, tmp_path, named_by):
    bmc = start_bmc(scenario([{"entries": 30}], answer="both", result="task", named_by=named_by))
    ended = collect(bmc, tmp_path)
    assert ended.code == 0, ended.err
    assert arrived(ended) == data_of(bmc, 31)


def test_an_entry_that_appears_later_is_waited_for(start_bmc, tmp_path):
    bmc = start_bmc(scenario([{"entries": 3}], answer="none", appears_after=2))
    ended = tool.run([a if a != "0" else "1" for a in tool.collect(bmc, tmp_path, "--json")], password=bmc.password)
    assert ended.code == 0, ended.err
    assert arrived(ended) == data_of(bmc, 4)


def test_the_session_is_the_runs_own_and_ends(start_bmc, tmp_path):
    bmc = start_bmc(scenario())
    ended = collect(bmc, tmp_path)
    assert ended.code == 0, ended.err
    (session,) = [r["path"] for r in bmc.requests("DELETE")]
    assert session.startswith(SESSIONS + "/")
    after = [r for r in bmc.requests() if r["path"].startswith("/redfish/v1/TaskService")]
    assert after and all("X-Auth-Token" in r["headers"] and "Authorization" not in r["headers"] for r in after)
    assert all(r["path"] == session for r in bmc.requests("DELETE")), "nothing else is deleted"
