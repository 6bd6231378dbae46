# SPDX-License-Identifier: Apache-2.0
"""What a station has of a BMC from earlier runs, by the history and the records of kemffdc."""

from __future__ import absolute_import, division, print_function

import json
import os

from ansible_collections.varnex.ffdc.plugins.module_utils.kemffdc import options_on_line
from ansible_collections.varnex.ffdc.plugins.module_utils.times import age_of

__metaclass__ = type

_RUNS = 50  # that are looked through, the newest ones
_UNFINISHED = (6, 7, 130)  # exit codes of runs that can be gone on with


class Earlier(object):
    """The runs of one BMC that would have brought what is asked for now, the newest first."""

    def __init__(self, tool, params, max_age):
        """`max_age` in seconds."""
        words = ["history"] + ([params["host"]] if params["host"] else [])
        words += ["--limit", str(_RUNS)] + options_on_line(params, ["state_dir"])
        runs = tool.run(words).document.get("runs") or []
        self._params = params
        self._max_age = max_age
        self._runs = [run for run in runs if _fits(run, params)]

    def whole(self):
        """The newest run that has brought everything and is young enough; else None."""
        for run in self._runs:
            if self._is_young(run["ended"]) and _is_whole(run, self._params):
                return run
        return None

    def is_at_work(self):
        """Whether one of them has not ended."""
        return any(run["outcome"] == "running" for run in self._runs)

    def unfinished(self):
        """The newest run, where its task may still be on the BMC; else None."""
        if not self._runs:
            return None
        newest = self._runs[0]
        ended_early = newest["outcome"] == "killed" or newest["exit_code"] in _UNFINISHED
        started = newest["channel"] == "redfish" and newest["task_uri"]
        if not (ended_early and started and self._is_young(newest["started"])):
            return None
        return None if _delivered(newest) else newest

    def _is_young(self, moment):
        return moment is not None and age_of(moment) < self._max_age


def record_of(run):
    """The object that kemffdc printed at the end of this run: from beside its archive, or rebuilt."""
    names = [archive["path"] for archive in _delivered(run)]
    for name in names + [os.path.dirname(name) for name in names]:
        try:
            with open(name + ".json", "rb") as file:
                record = json.loads(file.read().decode("utf-8"))
        except (OSError, ValueError):
            continue
        # Its times may differ by a second from those of the history.
        if isinstance(record, dict) and record.get("run") == run["run"]:
            return record
    return dict(run, path=names[0] if names else None, retryable=False)


def _fits(run, params):
    """Whether it asked for the same. What is not given now is whatever the station is set to."""
    asked = {
        "channel": params["via"],
        "operation": params["operation"],
        "port": params["port"],
        "log_kind": params["log"],
    }
    return all(value in (None, "auto", run.get(name)) for name, value in asked.items())


def _is_whole(run, params):
    export = params["export"]
    if run["outcome"] == "exported":
        return run["export_uri"] == export["uri"] if export else params["output"] is None
    if run["outcome"] != "downloaded" or export:
        return False
    archives = _delivered(run)
    return (len(archives) > 0
            and all(_is_as_recorded(archive) for archive in archives)
            and _lies_in(params["output"], run))


def _delivered(run):
    return [archive for archive in run["archives"] if archive["path"]]


def _is_as_recorded(archive):
    """There and of its size. Whether the sums are right, `kemffdc verify` tells."""
    try:
        size = os.path.getsize(archive["path"])
    except OSError:
        return False
    return archive["readable"] is not False and size == archive["size"]


def _lies_in(output, run):
    if output is None:
        return True
    folder = os.path.dirname(_delivered(run)[0]["path"])
    if os.path.exists(folder + ".json"):  # a folder of files has its record beside it
        folder = os.path.dirname(folder)
    return os.path.realpath(folder) == os.path.realpath(output)
