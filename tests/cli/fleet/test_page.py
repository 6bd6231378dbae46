# SPDX-License-Identifier: Apache-2.0
"""The quick start of docs/fleet.md can be followed."""

import re

import tool


def test_the_list_and_the_accounts_of_the_quick_start_are_good(tmp_path, state):
    page = (tool.ROOT / "docs" / "fleet.md").read_text(encoding="utf-8")
    start = page.partition("## Quick start\n")[2].partition("\n## ")[0]
    rack, accounts = re.findall(r"^```(?:yaml)?\n(.*?)^```$", start, re.MULTILINE | re.DOTALL)
    (tmp_path / "rack.csv").write_text(rack, encoding="utf-8")
    (tmp_path / "accounts.yaml").write_text(accounts, encoding="utf-8")
    (tmp_path / "accounts.yaml").chmod(0o600)

    told = tool.run(["fleet", "hosts", tmp_path / "rack.csv", "--credentials", tmp_path / "accounts.yaml"])
    assert told.code == 0, told.err
    assert ": 41 BMCs\n" in told.out
    assert "accounts.yaml:1 (lab)" in told.out and "accounts.yaml:2 (spare)" in told.out
