# SPDX-License-Identifier: Apache-2.0
"""Export tasks: each walks the scenario's steps, one per poll or by the clock."""

from __future__ import annotations

import asyncio
import datetime
import logging
from dataclasses import dataclass
from typing import Any, Mapping, Sequence

from bmc.archive import Archive
from bmc.machine import iso
from bmc.redfish.registries import message_object
from bmc.redfish.steps import OWN, TaskStep
from bmc.upload import UploadFailure, store_of, upload

_LOG = logging.getLogger("emulated-bmc")
NAME = "Export of service data"
ENDED = ("Completed", "Exception", "Killed", "Cancelled", "Interrupted")
_OK_STATES = ("New", "Starting", "Running", "Completed", "Pending", "Stopping", "Suspended")
_LAST_WORDS = {
    "Completed": "TaskCompletedOK", "Killed": "TaskAborted", "Interrupted": "TaskAborted",
    "Cancelled": "TaskCancelled", "Suspended": "TaskPaused",
}
_UPLOAD_MESSAGES = {  # by curl's exit code
    5: "ExportHostUnknown", 6: "ExportHostUnknown", 7: "ExportUnreachable", 28: "ExportTimedOut",
    67: "ExportLoginRefused", 70: "ExportStoreFull",
    9: "ExportDenied", 25: "ExportDenied", 68: "ExportDenied", 69: "ExportDenied", 78: "ExportDenied",
}


@dataclass(frozen=True)
class Walk:
    """The steps of a task; `seconds` for each of them, or None where each poll is one."""

    steps: Sequence[TaskStep]
    seconds: float | None = None


class ExportTask:
    """One export: its walk, and its upload where the BMC was told a target."""

    def __init__(self, id_: Any, kind: str, archive: Archive, walk: Walk, path: str | None) -> None:
        self.id = id_
        self.kind = kind  # the DataCollectionType that was asked for
        self.archive = archive
        self.path = path  # where a client finds the archive; None: it is not told
        self.started = _now()
        self._walk = walk
        self._polls = 0
        self._upload: asyncio.Task[UploadFailure | None] | None = None
        self._target = self._user = ""
        self._ended: datetime.datetime | None = None

    def upload_to(self, uri: str, user: str, password: str) -> None:
        """Starts the upload, if the task is to complete at all."""
        self.path = None
        self._target, self._user = store_of(uri), user
        if any(step.state == "Completed" for step in self._walk.steps):
            self._upload = asyncio.create_task(upload(self.archive.file, uri, user, password))
            self._upload.add_done_callback(_report)

    def advance(self) -> None:
        """A poll: the next step, the last one for ever."""
        self._polls += 1

    @property
    def is_gone(self) -> bool:
        return self._walk.steps[self._step].gone

    @property
    def _step(self) -> int:
        if self._walk.seconds is None:
            step = max(0, self._polls - 1)  # the answer to the export shows the first one already
        else:
            step = int((_now() - self.started).total_seconds() / self._walk.seconds)
        return min(step, len(self._walk.steps) - 1)

    def _state_at(self, step: TaskStep) -> Any:
        """The state at a step; an upload holds the end back and decides it."""
        scripted = step.state
        if scripted != "Completed" or self._upload is None:
            return scripted
        if not self._upload.done():
            return "Running"
        return "Completed" if self.failure is None else "Exception"

    @property
    def failure(self) -> UploadFailure | None:
        """Why the upload failed, once it has."""
        if self._upload is None or not self._upload.done():
            return None
        error = self._upload.exception()
        return UploadFailure(0, 0, str(error)) if error else self._upload.result()

    def document(self, uri: str, wishes: Mapping[str, Any]) -> dict[str, Any]:
        """The task resource, changed as the scenario wishes."""
        reached = self._walk.steps[: self._step + 1]
        step = reached[-1]
        state = wishes.get("task_state", self._state_at(step))
        document = {
            "@odata.id": uri,
            "@odata.type": "#Task.v1_7_0.Task",
            "Id": wishes.get("id", self.id),
            "Name": NAME,
            "TaskState": state,
            "TaskStatus": _told(step.status, "OK" if state in _OK_STATES else "Critical"),
            "StartTime": iso(self.started),
            "PercentComplete": _told(step.percent, self._percent(state, len(reached))),
            "HidePayload": True,
            "TaskMonitor": uri + "/Monitor",
            "Messages": self._messages(state, reached),
        }
        if wishes.get("path", "") is not None:
            document["Oem"] = {"Tavrin": self._oem(state, wishes.get("path", self.path))}
        if state in ENDED:
            self._ended = self._ended or _now()
            document["EndTime"] = iso(self._ended)
        if wishes.get("no_id"):
            del document["Id"]
        for name in ("Id", "TaskState", "TaskStatus", "PercentComplete"):
            if name in document and document[name] is None:
                del document[name]
        return document

    def _oem(self, state: Any, path: str | None) -> dict[str, Any]:
        """What a client that meets the task in the collection knows it by, and where the archive is."""
        oem = {"@odata.type": "#TavrinTask.v1_0_0.Tavrin", "DataCollectionType": self.kind}
        if state == "Completed" and path is not None:
            return {**oem, "FFDCForDownloading": {"Path": path}}
        return oem

    def _percent(self, state: Any, reached: int) -> int:
        done = 100 * (reached - 1) // len(self._walk.steps)
        return 100 if state == "Completed" else min(99, done)

    def _messages(self, state: Any, reached: Sequence[TaskStep]) -> list[Any]:
        """The newest one last. What a scenario gives a step replaces what the BMC would say of it."""
        messages = [message_object("TaskStarted", str(self.id))]
        messages += [message for step in reached for message in step.messages]
        if self.failure is not None:
            return [*messages, _upload_message(self.failure, self._target, self._user, self.archive.name)]
        return messages if reached[-1].messages else [*messages, *self._last_words(state)]

    def _last_words(self, state: Any) -> list[dict[str, Any]]:
        if state == "Exception":
            return [message_object("InternalError")]
        name = _LAST_WORDS.get(state) if isinstance(state, str) else None
        return [message_object(name, str(self.id))] if name else []


def _told(scripted: Any, own: Any) -> Any:
    return own if scripted is OWN else scripted


def _upload_message(failure: UploadFailure, store: str, user: str, file: str) -> dict[str, Any]:
    name = _UPLOAD_MESSAGES.get(failure.code, "ExportFailed")
    if failure.http_status in (401, 403):
        name = "ExportLoginRefused"
    second = {"ExportLoginRefused": [user], "ExportDenied": [file], "ExportFailed": [failure.reason]}
    return message_object(name, store, *second.get(name, []))


def _now() -> datetime.datetime:
    return datetime.datetime.now(datetime.timezone.utc)


def _report(task: "asyncio.Task[UploadFailure | None]") -> None:
    if not task.cancelled() and (task.exception() or task.result()):
        _LOG.warning("the upload failed: %s", task.exception() or task.result())
