# SPDX-License-Identifier: Apache-2.0
"""A fleet run that is killed with SIGKILL at random moments ends as one that is not."""

import kills
import tool


def test_whoever_is_killed_each_bmc_exports_once_and_each_archive_is_whole():
    played = kills.play(rounds=4, count=8, seed=20260131, longest=3.0 * max(1.0, tool.SLOWNESS / 2))
    assert sum(played.values()) == 4
