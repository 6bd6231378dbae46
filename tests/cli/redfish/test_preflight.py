# SPDX-License-Identifier: Apache-2.0
"""What the tool finds out before anything is gathered."""

import pytest
import yaml

import tool

SCENARIOS = tool.ROOT / "emulator" / "scenarios"
ACTION = "/redfish/v1/Managers/1/Oem/Tavrin/ServiceData/Actions/TavrinServiceData.ExportFFDCData"
NO_OPERATION = (
    "This BMC has no such operation as the export of service data (its manager lists none, and there is none at its "
    "usual place). It is of another make, or its firmware is too old.")


def scenario(name):
    return yaml.safe_load((SCENARIOS / f"{name}.yaml").read_text(encoding="utf-8"))


def test_a_check_of_a_bmc_without_the_operation_ends_as_limited(start_bmc):
    bmc = start_bmc(scenario("no-export-action"))
    ended = tool.run(tool.check(bmc, "--operation", "oem", "--json"), password=bmc.password)
    assert (ended.code, ended.json["reason"]) == (10, NO_OPERATION)
    assert bmc.requests("POST") == []


def test_a_collection_from_it_ends_before_anything_is_gathered(start_bmc, tmp_path):
    bmc = start_bmc(scenario("no-export-action"))
    ended = tool.run(tool.collect(bmc, tmp_path, "--operation", "oem"), password=bmc.password)
    assert ended.code == 4
    assert "This BMC has no such operation as the export of service data (HTTP 404" in ended.err


def test_check_names_the_operation_and_the_reason(start_bmc):
    with_export, without = start_bmc(), start_bmc(scenario("no-export-action"))
    for bmc, arguments, operation, why in [
            (with_export, [], "oem", "the BMC offers it"),
            (with_export, ["--operation", "tree"], "tree", "--operation tree asks for it"),
            (without, [], "tree", "the BMC has neither an OEM export nor the standard's action")]:
        ended = tool.run(tool.check(bmc, *arguments, "--json"), password=bmc.password)
        assert (ended.code, ended.json["operation"], ended.json["operation_reason"]) == (0, operation, why), ended.err
        ended = tool.run(tool.check(bmc, *arguments), password=bmc.password)
        assert f"Operation:       {operation} ({why})\n" in ended.out
        assert bmc.requests("POST") == []


def test_an_export_to_a_store_is_the_oems_alone(start_bmc, tmp_path):
    bmc = start_bmc()
    arguments = [*tool.check(bmc)[:-2], "--export-uri", "sftp://127.0.0.1/x"]
    arguments = ["collect", *arguments[1:], "--password-file", "-", "--operation", "standard"]
    ended = tool.run(arguments, password=bmc.password)
    assert ended.code == 2
    assert "--operation standard brings the data here; --export-uri goes with the OEM export alone." in ended.err
    assert bmc.requests() == []


def test_a_run_keeps_its_operation(bmc, state, tmp_path):
    ended = tool.run(tool.collect(bmc, tmp_path / "out", "--events"), password=bmc.password)
    assert ended.code == 0, ended.err
    assert {"event": "operation-chosen", "operation": "oem", "reason": "the BMC offers it"}.items() <= next(
        e for e in ended.events if e["event"] == "operation-chosen").items()
    (run,) = tool.run(["history", "--json"]).json["runs"]
    assert run["operation"] == "oem"
    assert "Operation: oem" in tool.run(["show", "1"]).out


def test_an_operation_that_is_not_listed_may_be_there_all_the_same(start_bmc, tmp_path):
    bmc = start_bmc(scenario("unlisted-export-action"))
    assert tool.run(tool.check(bmc), password=bmc.password).code == 0
    assert [r["method"] for r in bmc.requests() if r["path"] == ACTION] == ["GET"]
    assert tool.run(tool.collect(bmc, tmp_path), password=bmc.password).code == 0


def test_a_listed_operation_is_not_asked_for(bmc):
    assert tool.run(tool.check(bmc), password=bmc.password).code == 0
    assert not [r for r in bmc.requests() if r["path"] == ACTION]


def test_a_check_as_a_user_who_may_only_read_ends_as_limited(start_bmc):
    bmc = start_bmc({"role": "ReadOnly"})
    ended = tool.run(tool.check(bmc, "--json"), password=bmc.password)
    assert (ended.code, ended.json["reason"]) == (
        10, 'User "admin" may read on the BMC and nothing else (role ReadOnly); it will refuse the export. Use an '
            "account with more rights.")


@pytest.mark.parametrize("role", ["Administrator", "Operator"])
def test_others_may_export(start_bmc, role):
    bmc = start_bmc({"role": role})
    assert tool.run(tool.check(bmc), password=bmc.password).code == 0


@pytest.mark.parametrize("odd", [
    {"status": 404}, {"status": 403}, {"json": []}, {"json": {"Members": [7, {}, {"@odata.id": "//x/y"}]}},
    {"json": {"Members": [{"@odata.id": "/redfish/../x"}]}}])
def test_accounts_that_cannot_be_read_tell_nothing(start_bmc, odd):
    bmc = start_bmc({"role": "ReadOnly", "redfish": {"answers": {
        "GET /redfish/v1/AccountService/Accounts": [{**odd, "repeat": True}]}}})
    assert tool.run(tool.check(bmc), password=bmc.password).code == 0


def test_the_machine_is_known_by_serial_number_and_uuid(start_bmc, tmp_path):
    bmc = start_bmc({"machine": {"serial": "SN0815", "uuid": "0F8FAD5B-D9CB-469F-A165-70867728950E"}})
    for ended in (tool.run(tool.check(bmc, "--json"), password=bmc.password),
                  tool.run(tool.collect(bmc, tmp_path, "--json"), password=bmc.password)):
        assert ended.code == 0, ended.err
        assert ended.json["bmc"]["serial"] == "SN0815"
        assert ended.json["bmc"]["uuid"] == "0f8fad5b-d9cb-469f-a165-70867728950e"


def test_a_bmc_that_does_not_say_which_machine_it_is_is_good_all_the_same(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"answers": {"GET /redfish/v1/Systems/1": [{"status": 500, "repeat": True}]}}})
    ended = tool.run(tool.collect(bmc, tmp_path, "--json"), password=bmc.password)
    assert ended.code == 0, ended.err
    assert (ended.json["bmc"]["serial"], ended.json["bmc"]["uuid"]) == (None, None)
