# SPDX-License-Identifier: Apache-2.0
"""Other vendors' shapes of the tree, as the emulated BMC shows them."""

from __future__ import annotations

import urllib.parse

import pytest
import yaml

from conftest import EMULATOR, outcome

SHAPES = EMULATOR / "shapes"
SMALL = {
    "expand": {"NoLinks": True},
    "resources": {
        "/redfish/v1/Chassis/c{1..3}": {"type": "Chassis.v1_22_0", "members": {"Note": "number {1} of {model}"}},
        "/redfish/v1/Chassis/c{1..3}/Oem/X/Fan{1..2}": {"type": "XFan.v1_0_0"},
        "/redfish/v1/Chassis/c{1..3}/Spec": {"type": "XSpec.v1_0_0", "below": ["Oem", "X"]},
    },
    "logs": {"/redfish/v1/Chassis/c1/LogServices/L/Entries": {"entries": 7, "page": 3, "whole": False}},
}


@pytest.fixture
def small(start, tmp_path):
    """A BMC of a small shape; `changes` to its log."""

    def make(**changes):
        (log,) = SMALL["logs"].items()
        shape = {**SMALL, "logs": {log[0]: {**log[1], **changes}}}
        file = tmp_path / "shape.yaml"
        file.write_text(yaml.safe_dump(shape), encoding="utf-8")
        return start({"machine": {"model": "M1"}, "redfish": {"shape": str(file)}})

    return make


def members(document):
    return [member["@odata.id"] for member in document["Members"]]


def pages(bmc, path, most=10):
    """The Ids or links of a log's pages, as their links lead on."""
    found = []
    while path and len(found) < most:
        page = bmc.get(urllib.parse.urlsplit(path)._replace(scheme="", netloc="").geturl()).json()
        found.append([member.get("Id") or member["@odata.id"].rpartition("/")[2] for member in page["Members"]])
        path = page.get("Members@odata.nextLink")
    return found


def test_links_and_collections_follow_from_the_paths(small):
    bmc = small()
    root = bmc.get("/redfish/v1/").json()
    assert root["Chassis"] == {"@odata.id": "/redfish/v1/Chassis"}
    assert "Systems" not in root and "Managers" not in root
    assert members(bmc.get("/redfish/v1/Chassis").json()) == [f"/redfish/v1/Chassis/c{n}" for n in (1, 2, 3)]
    chassis = bmc.get("/redfish/v1/Chassis/c2").json()
    assert chassis["Note"] == "number 2 of M1" and chassis["@odata.type"] == "#Chassis.v1_22_0.Chassis"
    assert chassis["Oem"]["X"]["Spec"] == {"@odata.id": "/redfish/v1/Chassis/c2/Spec"}
    assert bmc.get("/redfish/v1/Chassis/c2/Spec").status == 200
    assert bmc.get("/redfish/v1/Chassis/c4").status == 404


def test_a_collection_brings_its_members_where_that_is_offered(small):
    bmc = small()
    assert bmc.get("/redfish/v1/").json()["ProtocolFeaturesSupported"]["ExpandQuery"] == {"NoLinks": True}
    expanded = bmc.get("/redfish/v1/Chassis?$expand=.($levels=1)").json()
    assert [member["Note"] for member in expanded["Members"]] == [f"number {n} of M1" for n in (1, 2, 3)]
    assert bmc.get("/redfish/v1/Chassis?$expand=*").status == 501
    assert bmc.get("/redfish/v1/Chassis?$filter=x").status == 501


@pytest.mark.parametrize("changes, found", [
    ({}, [["1", "2", "3"], ["4", "5", "6"], ["7"]]),
    ({"whole": True, "next": "page"}, [["1", "2", "3"], ["4", "5", "6"], ["7"]]),
    ({"next": "address"}, [["1", "2", "3"], ["4", "5", "6"], ["7"]]),
    ({"page": None}, [["1", "2", "3", "4", "5", "6", "7"]]),
    ({"after": "circle"}, [["1", "2", "3"], ["4", "5", "6"], ["7"]] * 3 + [["1", "2", "3"]]),
    ({"after": "endless"}, [[str(n + d) for d in (1, 2, 3)] for n in range(0, 30, 3)]),
    ({"after": "same"}, [["1", "2", "3"]] * 10),
])
def test_a_log_comes_by_the_page(small, changes, found):
    assert pages(small(**changes), "/redfish/v1/Chassis/c1/LogServices/L/Entries") == found


def test_entries_are_resources(small):
    bmc = small()
    entries = "/redfish/v1/Chassis/c1/LogServices/L/Entries"
    assert bmc.get(entries + "/7").json()["@odata.type"].startswith("#LogEntry.")
    assert [bmc.get(f"{entries}/{name}").status for name in ("0", "8", "x")] == [404, 404, 404]
    assert bmc.get(entries + "?$skip=x").status == 501
    assert bmc.get(entries + "?$expand=.").json()["Members"][0]["Id"] == "1"


def test_a_shape_has_no_export_and_no_reset(small):
    bmc = small()
    for path in ("/redfish/v1/Managers/1/Oem/Tavrin/ServiceData/Actions/TavrinServiceData.ExportFFDCData",
                 "/redfish/v1/Systems/1/Actions/ComputerSystem.Reset"):
        assert bmc.post(path, {}).status == 404


def test_without_a_shape_nothing_is_new(start):
    bmc = start()
    assert "ExpandQuery" not in bmc.get("/redfish/v1/").json()["ProtocolFeaturesSupported"]
    assert bmc.get("/redfish/v1/Systems?$expand=.").status == 501


@pytest.mark.parametrize("name", sorted(file.stem for file in SHAPES.glob("*.yaml")))
def test_each_shape_that_comes_along_can_be_walked(start, name):
    bmc = start({"redfish": {"shape": str(SHAPES / f"{name}.yaml")}})
    assert bmc.get("/redfish/v1/").json()["Vendor"].lower() == name
    for collection in ("Systems", "Chassis", "Managers"):
        for member in members(bmc.get(f"/redfish/v1/{collection}").json()):
            assert bmc.get(member).json()["@odata.id"] == member


@pytest.mark.parametrize("shape, said", [
    ({"x": 1}, "x: unknown member"),
    ({"resources": {"/x": {"type": "A.v1_0_0"}}}, "must be a path below /redfish/v1/"),
    ({"resources": {"/redfish/v1/A": {}}}, "type is missing"),
    ({"logs": {"/redfish/v1/A": {"after": "x"}}}, "unknown value 'x'; allowed: none, circle, endless, same"),
    ({"logs": {"/redfish/v1/A": {"page": 0}}}, "must be a whole number from 1"),
])
def test_a_shape_is_checked_member_by_member(tmp_path, shape, said):
    (tmp_path / "shape.yaml").write_text(yaml.safe_dump(shape), encoding="utf-8")
    (tmp_path / "scenario.yaml").write_text("redfish: {shape: shape.yaml}\n", encoding="utf-8")
    ended = outcome("--scenario", str(tmp_path / "scenario.yaml"))
    assert ended.returncode == 2
    assert f"{tmp_path}/shape.yaml:" in ended.stderr and said in ended.stderr
