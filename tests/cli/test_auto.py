# SPDX-License-Identifier: Apache-2.0
"""The search for a channel, against BMCs at the usual ports.

To be run in tools/private-net, where these are free.
"""

import contextlib

import pytest

import ipmi_tool
import tool

USUAL = ("--redfish-port", "443", "--ipmi-port", "623", "--cim-port", "5988", "--cim-https-port", "5989")


@contextlib.contextmanager
def bmc_with(**scenario):
    bmc = tool.Bmc(scenario, ["--bind", ipmi_tool.fresh_address(), *USUAL])
    try:
        yield bmc
    finally:
        bmc.stop()


def search(command, bmc, folder, *arguments, password=None):
    """A run that names no channel, and its result as JSON."""
    ended = tool.run([command, bmc.address, "--user", bmc.user, "--password-file", "-", "--json", *arguments],
                     password=password or bmc.password, environment=ipmi_tool.environment(folder))
    return ended, ended.json


def attempts(result):
    return [(attempt["channel"], attempt["outcome"]) for attempt in result["attempts"]]


def test_redfish_is_taken_first(tmp_path):
    with bmc_with(redfish={"task_states": ["Completed"]}) as bmc:
        ended, result = search("collect", bmc, tmp_path, "--interval", "0", "--output", str(tmp_path / "out"))

    assert (ended.code, result["channel"], result["port"]) == (0, "redfish", 443)
    assert attempts(result) == [("redfish", "ok")]
    assert "Trying redfish, port 443." in ended.err


def test_a_run_that_found_its_way_can_be_continued(tmp_path):
    with bmc_with(redfish={"task_states": ["Running"]}) as bmc:
        ended, result = search("collect", bmc, tmp_path, "--interval", "0", "--tries", "1")

    assert (ended.code, result["channel"]) == (6, "redfish")
    assert f"This run can be continued: kemffdc resume {result['run']}" in result["reason"]


def test_ipmi_is_taken_where_there_is_no_redfish(tmp_path):
    with bmc_with(closed=["redfish"], **ipmi_tool.scenario()) as bmc:
        ended, result = search("collect", bmc, tmp_path, "--output", str(tmp_path / "out"))

    assert (ended.code, result["channel"]) == (0, "ipmi")
    assert attempts(result) == [("redfish", "unreachable"), ("ipmi", "ok")]
    assert result["files"]


def test_a_bmc_without_the_export_is_left_for_the_next_channel(tmp_path):
    with bmc_with(redfish={"export_action": "missing"}, **ipmi_tool.scenario()) as bmc:
        ended, result = search("collect", bmc, tmp_path, "--output", str(tmp_path / "out"))

    assert (ended.code, result["channel"]) == (0, "ipmi")
    assert attempts(result) == [("redfish", "unsupported"), ("ipmi", "ok")]


def test_what_a_bmc_did_not_make_by_its_own_export_comes_last(tmp_path):
    without = {"export_action": "missing", "task_states": ["Completed"]}
    standard = {**without, "diagnostics": {"services": [{}], "retry_after": 0}}
    for redfish, operation in [(standard, "standard"), (without, "tree")]:
        with bmc_with(closed=["cim", "cim-https", "ipmi"], redfish=redfish) as bmc:
            ended, result = search("collect", bmc, tmp_path, "--interval", "0", "--output", str(tmp_path / operation))
        tried = [(attempt["channel"], attempt["operation"]) for attempt in result["attempts"]]
        assert (ended.code, result["operation"]) == (0, operation), ended.err
        assert tried[:3] == [("redfish", "oem"), ("ipmi", None), ("cim", None)], tried
        assert tried[-1] == ("redfish", operation), tried


def test_cim_is_passed_over_without_an_export_uri_and_ipmi_with_one(tmp_path):
    closed = {"closed": ["redfish"], "ipmi": {"silent": True}}
    with bmc_with(**closed) as bmc:
        ended, result = search("check", bmc, tmp_path)
        assert ended.code == 3
        assert attempts(result) == [("redfish", "unreachable"), ("ipmi", "unreachable"), ("cim", "unsupported")]
        assert "cim, port 5989: Passed over: it needs --export-uri" in result["reason"]

        ended, result = search("collect", bmc, tmp_path, "--export-uri", "sftp://127.0.0.1:9/x/")
        assert result["channel"] == "cim"
        assert attempts(result)[:2] == [("redfish", "unreachable"), ("ipmi", "unsupported")]


def test_a_refused_password_ends_the_search(tmp_path):
    with bmc_with(**ipmi_tool.scenario()) as bmc:
        ended, result = search("collect", bmc, tmp_path, "--output", str(tmp_path / "out"), password="wrong")
        asked = [request["path"] for request in bmc.requests() if "Authorization" in request["headers"]]

    assert (ended.code, result["outcome"]) == (3, "login-refused")
    assert attempts(result) == [("redfish", "login-refused")]
    assert len(asked) == 1


def test_nothing_that_answers_is_told_service_by_service(tmp_path):
    with bmc_with(closed=["redfish", "cim", "cim-https", "ipmi"]) as bmc:
        ended, result = search("check", bmc, tmp_path)

    assert (ended.code, result["outcome"]) == (3, "unreachable")
    assert "None of the BMC's services can be used. redfish, port 443: Cannot connect" in result["reason"]
    assert "ipmi, port 623: No BMC answers" in result["reason"]


def test_a_silent_bmc_costs_seconds_and_not_minutes(tmp_path):
    with bmc_with(filtered=["redfish", "cim", "cim-https"], ipmi={"silent": True}) as bmc:
        ended, result = search("check", bmc, tmp_path)

    assert ended.code == 3
    assert ended.seconds < 12 * tool.SLOWNESS
    assert [outcome for _, outcome in attempts(result)][:2] == ["unreachable", "unreachable"]


@pytest.mark.parametrize("named, answers", [("redfish", "ipmi (port 623) answers."),
                                            ("cim", "ipmi (port 623) answers.")])
def test_a_closed_port_of_a_named_channel_names_the_ones_that_answer(tmp_path, named, answers):
    with bmc_with(closed=["redfish", "cim", "cim-https"]) as bmc:
        ended = tool.run(["check", "--via", named, bmc.address, "--password-file", "-"], password=bmc.password,
                         environment=ipmi_tool.environment(tmp_path))

    assert ended.code == 3
    assert f"But there {answers} Take it with --via." in ended.err
