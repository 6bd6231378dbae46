# SPDX-License-Identifier: Apache-2.0
"""The runs of a station on its share of the BMCs: which one there is already, and what became of it."""

from __future__ import absolute_import, division, print_function

import glob
import os

from ansible_collections.varnex.ffdc.plugins.module_utils.bmc import GATHERING
from ansible_collections.varnex.ffdc.plugins.module_utils.kemffdc import (
    options_on_line,
    station_arguments,
)
from ansible_collections.varnex.ffdc.plugins.module_utils.times import age_of

__metaclass__ = type

LOCAL = 8  # exit code: among others, another one works on the run
SOME = 20  # exit code: some of the hosts are not done

_SELECTION = dict(
    hosts=dict(type="str"),
    limit=dict(type="str"),
    exclude=dict(type="str"),
    shard=dict(type="str"),
    credentials=dict(type="path"),
)
_PACE = dict(
    gathering=dict(type="int"),
    transfers=dict(type="int"),
    starts=dict(type="int"),
    retries=dict(type="int"),
    retry_pause=dict(type="str"),
    host_deadline=dict(type="str"),
    run_deadline=dict(type="str"),
)
_FINISH = dict(
    keep=dict(type="int"),
    metrics=dict(type="path"),
    on_finish=dict(type="path"),
)
_COLLECTING = ["output"] + sorted(_PACE) + sorted(_FINISH)


def arguments():
    """The options of the module."""
    return dict(
        dict(_SELECTION, **_PACE),
        inventory=dict(type="path"),
        group=dict(type="list", elements="str"),
        output=dict(type="path", required=True),
        settings=dict(type="dict", default={}),
        command=dict(type="str", choices=["collect", "check"], default="collect"),
        max_age=dict(type="str", default="24h"),
        allow_partial=dict(type="bool", default=False),
        **dict(_FINISH, **station_arguments()))


class Share(object):
    """The BMCs of a station that are asked for, and what the station's tool does about them."""

    def __init__(self, tool, params):
        self._tool = tool
        self._params = params
        self.names = frozenset()

    def plan(self):
        """Which BMCs they are. The tool's answer, which is bad where the list of them is."""
        answer = self._run("hosts", self._selection())
        self.names = frozenset(host["name"] for host in answer.document.get("hosts") or [])
        return answer

    def newest_run(self, max_age):
        """The newest run below the output folder that has all of them, as `fleet status` tells it.

        None where there is none that was begun within `max_age` seconds, or works still.
        """
        folders = glob.glob(os.path.join(self._params["output"], "fleet_*", ""))
        for folder in sorted(folders, reverse=True):
            run = self.look_at(folder)
            if run and self._has_all(run):
                return run if run["live"] or age_of(run["started"]) < max_age else None
        return None

    def look_at(self, folder):
        """How a run is now; None where the history does not know it, or where it only checked."""
        run = self._run("status", [folder]).document
        return run if run.get("fleet") and run["command"].endswith("collect") else None

    def done(self, run):
        """How many of them it has done."""
        hosts = run.get("hosts") or []  # none where the tool has refused its command line
        return sum(host["state"] == "done" for host in hosts if host["name"] in self.names)

    def check(self):
        """Sees which of them can be used; nothing is gathered."""
        pace = sorted(set(_PACE) - set(["transfers"]))
        words = self._selection(without=GATHERING) + options_on_line(self._params, ["output"] + pace)
        return self._run("check", words)

    def collect(self):
        """Has all of them gather, in a new run."""
        return self._run("collect", self._selection() + options_on_line(self._params, _COLLECTING))

    def resume(self, run):
        """Goes on with those of a run that are not done."""
        given = [name for name in _COLLECTING if name != "output"]
        return self._run("resume", [run["folder"]] + options_on_line(self._params, ["credentials"] + given))

    def _has_all(self, run):
        return self.names <= set(host["name"] for host in run["hosts"])

    def _run(self, command, words):
        state = options_on_line(self._params, ["state_dir"])
        return self._tool.run(["fleet", command] + words + state)

    def _selection(self, without=()):
        words = [self._params["inventory"]] if self._params["inventory"] else []
        if self._params["group"]:
            words += ["--group", ",".join(self._params["group"])]
        words += options_on_line(self._params, sorted(_SELECTION))
        settings = self._params["settings"]
        return words + options_on_line(settings, sorted(set(settings) - set(without)))
