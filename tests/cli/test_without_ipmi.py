# SPDX-License-Identifier: Apache-2.0
"""A tool that was built with -DVARNEX_IPMI=OFF, with a module in its folder all the same."""

import json

import pytest

import tool

LEFT_OUT = "Not in this build (VARNEX_IPMI=OFF)"


def test_help_and_version_say_so():
    assert f"  ipmi      {LEFT_OUT}\n  kcs       {LEFT_OUT}\n" in tool.run(["--help"]).out
    version = tool.run(["--version"]).out
    assert "channels:     auto, redfish, cim\n" in version
    assert "IPMI module:  left out of this build (VARNEX_IPMI=OFF)\n" in version


@pytest.mark.parametrize("way", [["ipmi", "127.0.0.1"], ["kcs"]])
@pytest.mark.parametrize("command", ["check", "collect"])
def test_who_asks_for_it_is_told_before_anything_is_sent(command, way):
    ended = tool.run([command, "--via", *way])
    assert ended.code == 2
    assert f"--via {way[0]}: this kemffdc was built without IPMI (VARNEX_IPMI=OFF).\n" in ended.err


def test_the_search_for_a_way_passes_over_it():
    ended = tool.run(["check", "--via", "auto", "127.0.0.1", "--password-file", "-", "--json"], password="secret")
    (attempt,) = [attempt for attempt in json.loads(ended.out)["attempts"] if attempt["channel"] == "ipmi"]
    assert attempt["reason"] == "Passed over: --via ipmi: this kemffdc was built without IPMI (VARNEX_IPMI=OFF)."
