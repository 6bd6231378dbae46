# SPDX-License-Identifier: Apache-2.0
"""LogService.CollectDiagnosticData (DSP0268, schema LogService): the services, their entries and the data."""

from __future__ import annotations

import datetime
import hashlib
import io
import json
import random
import tarfile
import zipfile
from pathlib import Path
from typing import Any, Callable, Mapping

from bmc.archive import Archive
from bmc.http.messages import Reply, Request
from bmc.machine import FIXED_TIME, iso
from bmc.redfish.diagnostic_settings import DataSettings, DiagnosticSettings, LogServiceSettings
from bmc.redfish.documents import Document, collection, link, reply_with, request_object, resource
from bmc.redfish.download import Downloads
from bmc.redfish.errors import RedfishError, error_reply
from bmc.redfish.registries import log_message
from bmc.redfish.tasks import ENDED, ExportTask, Walk

ACTION = "LogService.CollectDiagnosticData"
_TYPES = ("Manager", "PreOS", "OS", "OEM", "CPER", "CPERSection")
_PARAMETERS = ("DiagnosticDataType", "OEMDiagnosticDataType", "TargetDevice")
_MANY_ENTRIES = 100  # collected ones that are kept


class Log:
    """A log service that offers the action, with its entries."""

    def __init__(self, settings: LogServiceSettings) -> None:
        self.settings = settings
        self.entries = settings.path + "/Entries"
        self.documents: dict[str, Document] = {
            str(number): _old_entry(self.entries, number) for number in range(1, settings.entries + 1)
        }
        self._last = settings.entries

    def next_number(self) -> str:
        self._last += 1
        return str(self._last)

    def document(self) -> Document:
        target = f"{self.settings.path}/Actions/{ACTION}"
        action: Document = {"target": target, "title": "CollectDiagnosticData"}
        if self.settings.action_info:
            action["@Redfish.ActionInfo"] = self.settings.path + "/CollectActionInfo"
        elif self.settings.types is not None:
            action["DiagnosticDataType@Redfish.AllowableValues"] = list(self.settings.types)
            if self.settings.oem_types:
                action["OEMDiagnosticDataType@Redfish.AllowableValues"] = list(self.settings.oem_types)
        return resource(
            self.settings.path, "LogService", "1_4_0", f"{self.settings.id} Log Service",
            ServiceEnabled=True, MaxNumberOfRecords=_MANY_ENTRIES, OverWritePolicy="WrapsWhenFull",
            Entries=link(self.entries), Actions={"#" + ACTION: action},
        )

    def action_info(self) -> Document:
        values = [("DiagnosticDataType", self.settings.types or ()), ("OEMDiagnosticDataType", self.settings.oem_types)]
        return resource(
            self.settings.path + "/CollectActionInfo", "ActionInfo", "1_3_0", "Collect Action Info",
            Parameters=[
                {"Name": name, "Required": name == "DiagnosticDataType", "DataType": "String", "AllowableValues": list(v)}
                for name, v in values
            ],
        )

    def page(self, query: str) -> Document:
        """The entries from the one on that the query names; DSP0266, `$skip` and nextLink."""
        skipped = next((part[6:] for part in query.replace("%24", "$").split("&") if part.startswith("$skip=")), "0")
        first = int(skipped) if skipped.isdecimal() else 0
        size = self.settings.page or max(1, len(self.documents))
        entries = list(self.documents.values())
        listed = collection(self.entries, "LogEntry", "Log Entries", self.documents)
        listed["Members"] = entries[first : first + size]
        if first + size < len(entries):
            listed["Members@odata.nextLink"] = f"{self.entries}?$skip={first + size}"
        elif self.settings.endless:
            listed["Members@odata.nextLink"] = f"{self.entries}?$skip=0"
        return listed


class DiagnosticTask(ExportTask):
    """A collection: its walk, and the entry that it leaves in the log."""

    def __init__(self, id_: Any, log: Log, asked: Document, walk: Walk, named_by: str) -> None:
        super().__init__(id_, asked.get("DiagnosticDataType", ""), None, walk, None)
        self.log, self.asked = log, asked
        self.entry: str | None = None  # its path, once it is made
        self._named_by = named_by

    def document(self, uri: str, wishes: Mapping[str, Any]) -> Document:
        document = super().document(uri, wishes)
        document.pop("Oem", None)
        document["Name"] = "Collection of diagnostic data"
        document["HidePayload"] = False
        document["Payload"] = {
            "HttpOperation": "POST", "TargetUri": f"{self.log.settings.path}/Actions/{ACTION}",
            "JsonBody": json.dumps(self.asked),
        }
        if self.entry is None or document.get("TaskState") != "Completed":
            return document
        if self._named_by == "created-resources":
            document["Links"] = {"CreatedResources": [link(self.entry)]}
        elif self._named_by == "header":
            document["Payload"]["HttpHeaders"] = ["Content-Length: 0", "Location: " + self.entry]
        elif self._named_by == "message":
            document["Messages"][-1]["Message"] += f" The data lies in {self.entry}."
        return document

    @property
    def state(self) -> Any:
        return "gone" if self.is_gone else super().document("", {}).get("TaskState")


class Diagnostics:
    """All log services that offer the action. One collection at a time."""

    def __init__(
        self, settings: DiagnosticSettings, downloads: Downloads, folder: Path,
        new_task: Callable[[Callable[[Any, Walk], DiagnosticTask]], tuple[DiagnosticTask, str]],
    ) -> None:
        self.settings = settings
        self.logs = {service.path: Log(service) for service in settings.services}
        self._downloads = downloads
        self._folder = folder
        self._new_task = new_task
        self._task: DiagnosticTask | None = None
        self._due: list[tuple[datetime.datetime, Log, str, Document]] = []
        self.archives: dict[str, Archive] = {}

    def has_pages(self, path: str) -> bool:
        return any(path == log.entries for log in self.logs.values())

    def handlers(self, path: str) -> Mapping[str, Callable[[Request, Mapping[str, Any]], Reply]] | None:
        self.settle()
        for top, log in self.logs.items():
            if path == top:
                return _reader(log.document)
            if path == top + "/CollectActionInfo" and log.settings.action_info:
                return _reader(log.action_info)
            if path == f"{top}/Actions/{ACTION}":
                return {"POST": lambda request, _, log=log: self._collect(log, request)}
            if path == log.entries:
                return {"GET": lambda request, _, log=log: reply_with(log.page(request.query))}
            if path.startswith(log.entries + "/"):
                return self._entry_handlers(log, path[len(log.entries) + 1 :])
        return None

    def monitor(self, task: DiagnosticTask, document: Document) -> Reply:
        """What the monitor of a task answers: 202 while it runs, then the operation's own answer (DSP0266)."""
        state = document.get("TaskState")
        if state not in ENDED:
            return reply_with(document, 202, {"Retry-After": str(self.settings.retry_after)})
        if state != "Completed":
            return error_reply("InternalError", status=500)
        return self._result(self.settings.result, task.log, task.entry, document)

    def settle(self) -> None:
        """Writes into the log what is due there by now."""
        if self._task is not None and self._task.entry is None and self._task.state in ("Completed", "gone"):
            self._task.entry = self._promise(self._task.log, self._task.asked)
        now = datetime.datetime.now(datetime.timezone.utc)
        for due in [one for one in self._due if one[0] <= now]:
            self._due.remove(due)
            due[1].documents[due[2]] = due[3]

    def _collect(self, log: Log, request: Request) -> Reply:
        asked = request_object(request)
        _check(log.settings, asked)
        if self._task is not None and self._task.state not in (*ENDED, "gone"):
            headers = {"Retry-After": str(self.settings.retry_after)}
            raise RedfishError("ServiceTemporarilyUnavailable", str(self.settings.retry_after), headers=headers)
        if self.settings.answer in ("entry", "created", "none"):
            return self._result(self.settings.answer, log, self._promise(log, asked), {})
        self._task, uri = self._new_task(
            lambda id_, walk: DiagnosticTask(id_, log, asked, walk, self.settings.named_by))
        headers = {"Retry-After": str(self.settings.retry_after)}
        if self.settings.answer != "task":
            headers["Location"] = uri + "/Monitor"
        if self.settings.answer == "monitor":
            return Reply(202, headers)
        return reply_with(self._task.document(uri, {}), 202, headers)

    def _result(self, form: str, log: Log, entry: str | None, task: Document) -> Reply:
        self.settle()
        if form == "task":
            return reply_with(task)
        document = log.documents.get((entry or "").rpartition("/")[2])
        if form == "none" or document is None:
            return Reply(204)
        if form == "created":
            return Reply(201, {"Location": entry})
        return reply_with(document)

    def _promise(self, log: Log, asked: Document) -> str:
        """Makes the data and an entry for it; returns the entry's path."""
        number = log.next_number()
        path = f"{log.entries}/{number}"
        archive = _make(self._folder, f"{log.settings.id}-{number}", self.settings.data)
        self.archives[path] = archive
        query = self.settings.data.query
        self._downloads.announce(path + "/attachment", archive, query)
        created = datetime.datetime.now(datetime.timezone.utc)
        document = resource(
            path, "LogEntry", "1_11_0", f"Collected data {number}",
            EntryType="Event", Created=iso(created), **log_message("DiagnosticDataCollected"),
            DiagnosticDataType=asked.get("DiagnosticDataType"),
            AdditionalDataURI=path + "/attachment" + (f"?{query}" if query else ""),
            AdditionalDataSizeBytes=archive.size,
        )
        if "OEMDiagnosticDataType" in asked:
            document["OEMDiagnosticDataType"] = asked["OEMDiagnosticDataType"]
        document |= self.settings.entry
        document = {name: value for name, value in document.items() if value is not None}
        due = created + datetime.timedelta(seconds=self.settings.appears_after)
        self._due.append((due, log, number, document))
        return path

    def _entry_handlers(self, log: Log, number: str) -> Mapping[str, Callable] | None:
        if number not in log.documents:
            return None

        def delete(_: Request, __: Mapping[str, Any]) -> Reply:
            del log.documents[number]
            return Reply(204)

        return {**_reader(lambda: log.documents[number]), "DELETE": delete}


def _reader(document: Callable[[], Document]) -> dict[str, Callable[[Request, Mapping[str, Any]], Reply]]:
    return {"GET": lambda *_: reply_with(document())}


def _check(settings: LogServiceSettings, asked: Document) -> None:
    """The parameters' names and values."""
    for name, value in asked.items():
        if name not in _PARAMETERS:
            raise RedfishError("ActionParameterUnknown", ACTION, name)
        if not isinstance(value, str):
            raise RedfishError("ActionParameterValueTypeError", ACTION, name)
    if "DiagnosticDataType" not in asked:
        raise RedfishError("ActionParameterMissing", ACTION, "DiagnosticDataType")
    kind, oem = asked["DiagnosticDataType"], asked.get("OEMDiagnosticDataType")
    if kind not in (_TYPES if settings.types is None else settings.types):
        raise RedfishError("ActionParameterValueNotInList", ACTION, "DiagnosticDataType", kind)
    if kind == "OEM" and oem is None:
        raise RedfishError("ActionParameterMissing", ACTION, "OEMDiagnosticDataType")
    if oem is not None and settings.oem_types and oem not in settings.oem_types:
        raise RedfishError("ActionParameterValueNotInList", ACTION, "OEMDiagnosticDataType", oem)


def _old_entry(entries: str, number: int) -> Document:
    return resource(
        f"{entries}/{number}", "LogEntry", "1_11_0", f"Entry {number}", EntryType="Event",
        Created=iso(FIXED_TIME + datetime.timedelta(seconds=number)), **log_message("Note", "An earlier event."),
    )


def _make(folder: Path, name: str, settings: DataSettings) -> Archive:
    """The data on the disk."""
    folder.mkdir(mode=0o700, exist_ok=True)
    content = _content(settings.kind, random.Random(name).randbytes(settings.size))
    file = folder / f"{name}.{settings.kind}"
    file.write_bytes(content)
    return Archive(
        "diagnostic", settings.name or "", file, len(content), hashlib.sha256(content).hexdigest(),
        settings.content_type, settings.digest,
    )


def _content(kind: str, raw: bytes) -> bytes:
    buffer = io.BytesIO()
    if kind == "zip":
        with zipfile.ZipFile(buffer, "w") as packed:
            packed.writestr("dump/core.bin", raw)
        return buffer.getvalue()
    if kind.startswith("tar."):
        with tarfile.open(fileobj=buffer, mode="w:" + kind[4:]) as packed:
            member = tarfile.TarInfo("dump/core.bin")
            member.size = len(raw)
            packed.addfile(member, io.BytesIO(raw))
        return buffer.getvalue()
    plain = {"bin": b"\x01DUMP\x00" + raw, "text": b"All is well.\n" * (1 + len(raw) // 13), "empty": b""}
    return plain[kind]
