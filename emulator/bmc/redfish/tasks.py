# SPDX-License-Identifier: Apache-2.0
"""Export tasks: each walks the scenario's states, one per poll."""

from __future__ import annotations

import asyncio
import datetime
import logging
from typing import Any, Mapping, Sequence

from bmc.archive import Archive
from bmc.machine import iso
from bmc.redfish.errors import message_object
from bmc.upload import upload

_LOG = logging.getLogger("emulated-bmc")
ENDED = ("Completed", "Exception", "Killed", "Cancelled", "Interrupted")
_OK_STATES = ("New", "Starting", "Running", "Completed", "Pending", "Stopping", "Suspended")


class ExportTask:
    """One export: its walk, and its upload where the BMC was told a target."""

    def __init__(self, id_: Any, archive: Archive, states: Sequence[Any], path: str | None) -> None:
        self.id = id_
        self.archive = archive
        self.path = path  # where a client finds the archive; None: it is not told
        self.started = self._now()
        self._states = states
        self._step = -1
        self._upload: asyncio.Task[str | None] | None = None

    def upload_to(self, uri: str, user: str, password: str) -> None:
        """Starts the upload, if the task is to complete at all."""
        self.path = None
        if "Completed" in self._states:
            self._upload = asyncio.create_task(upload(self.archive.file, uri, user, password))
            self._upload.add_done_callback(_report)

    def advance(self) -> None:
        """A poll: the next state, the last one for ever."""
        self._step = min(self._step + 1, len(self._states) - 1)

    @property
    def state(self) -> Any:
        """The state now; an upload holds the end back and decides it."""
        scripted = self._states[max(self._step, 0)]
        if scripted != "Completed" or self._upload is None:
            return scripted
        if not self._upload.done():
            return "Running"
        return "Completed" if self.failure is None else "Exception"

    @property
    def failure(self) -> str | None:
        """Why the upload failed, once it has."""
        if self._upload is None or not self._upload.done():
            return None
        error = self._upload.exception()
        return str(error) if error else self._upload.result()

    def document(self, uri: str, wishes: Mapping[str, Any]) -> dict[str, Any]:
        """The task resource, changed as the scenario wishes."""
        state = wishes.get("task_state", self.state)
        path = wishes.get("path", self.path)
        document = {
            "@odata.id": uri,
            "@odata.type": "#Task.v1_7_0.Task",
            "Id": wishes.get("id", self.id),
            "Name": "Export of service data",
            "TaskState": state,
            "TaskStatus": "OK" if state in _OK_STATES else "Critical",
            "StartTime": iso(self.started),
            "PercentComplete": self._percent(state),
            "HidePayload": True,
            "TaskMonitor": uri + "/Monitor",
            "Messages": self._messages(state),
        }
        if state in ENDED:
            document["EndTime"] = iso(self._now())
        if state == "Completed" and path is not None:
            document["Oem"] = {"Tavrin": {"FFDCForDownloading": {"Path": path}}}
        if state is None:
            del document["TaskState"]
        if wishes.get("no_id") or document["Id"] is None:
            del document["Id"]
        return document

    def _percent(self, state: Any) -> int:
        done = min(99, 100 * max(self._step, 0) // len(self._states))
        return 100 if state == "Completed" else done

    def _messages(self, state: Any) -> list[dict[str, Any]]:
        if state == "Completed":
            return [message_object("Success")]
        if state == "Exception":
            text = {"Message": self.failure} if self.failure else {}
            return [{**message_object("InternalError"), **text}]
        return []

    @staticmethod
    def _now() -> datetime.datetime:
        return datetime.datetime.now(datetime.timezone.utc)


def _report(task: "asyncio.Task[str | None]") -> None:
    if not task.cancelled() and (task.exception() or task.result()):
        _LOG.warning("the upload failed: %s", task.exception() or task.result())
