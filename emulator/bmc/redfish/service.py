# SPDX-License-Identifier: Apache-2.0
"""The Redfish service: who may ask, what there is, and the OEM export action."""

from __future__ import annotations

import hashlib
from pathlib import Path
from typing import Any, Callable, Mapping

from bmc.archive import FULL, MINI, Archive
from bmc.http.bodies import BytesBody
from bmc.http.messages import Reply, Request
from bmc.machine import Machine, iso
from bmc.redfish.diagnostics import Diagnostics, DiagnosticTask
from bmc.redfish.documents import JSON, Document, as_json, collection, reply_with, request_object, resource
from bmc.redfish.download import Downloads
from bmc.redfish.errors import RedfishError, error_for_status
from bmc.redfish.schemas import schema_file
from bmc.redfish.sessions import Account, Session, Sessions
from bmc.redfish.settings import RedfishSettings
from bmc.redfish.tasks import ENDED, ExportTask, Walk
from bmc.redfish.tree import COLLECTIONS, EXPORT, EXPORT_NAME, MANAGER_RESET, RESETS, ROOT, SESSIONS, Tree
from bmc.scenario import Scenario
from bmc.upload import usable_uri

_PUBLIC = ("/redfish", ROOT, ROOT + "/odata", ROOT + "/$metadata")
_METHODS = ("GET", "HEAD", "POST", "PUT", "PATCH", "DELETE", "OPTIONS")  # those that DSP0266 speaks of
_LARGEST_TASK_COUNT = 256
_EXPORT_TYPES = {
    "InitializationNeeded": bool,
    "Username": str,
    "Password": str,
    "ExportURI": str,
    "DataCollectionType": str,
}
_EXPORT_NEEDS = ("InitializationNeeded", "DataCollectionType")

Handler = Callable[[Request, Mapping[str, Any]], Reply]


class RedfishService:
    """Answers requests. Paths are taken with and without a slash at the end."""

    name = "redfish"

    def __init__(
        self, scenario: Scenario, machine: Machine, archives: Mapping[str, Archive], downloads: Downloads,
        folder: Path,
    ) -> None:
        """`folder`: for data that is made while the service runs."""
        settings: RedfishSettings = scenario.sections["redfish"]
        accounts = {user: Account(user, *rest) for user, rest in settings.accounts.items()}
        accounts = {scenario.user: Account(scenario.user, scenario.password, scenario.role), **accounts}
        self._archives = archives
        self._downloads = downloads
        self._walk = Walk(settings.task_steps, settings.task_step_seconds)
        self._tree = Tree(machine, settings, accounts)
        self._sessions = Sessions(accounts, settings.sessions)
        self._can_export = settings.export_action != "missing" and settings.shape is None
        self._tasks: dict[str, ExportTask] = {}
        self._last_task = 0
        self._diagnostics = Diagnostics(settings.diagnostics, downloads, folder, self._new_collection)

    # --- one request ------------------------------------------------------------------------

    async def answer(self, request: Request, wishes: Mapping[str, Any]) -> Reply:
        path = request.decoded_path.rstrip("/") or "/"
        try:
            self._check_method(request)
            self._check_versions(request, path)
            self._check_access(request, path)
            reply = self._dispatch(request, path, wishes)
        except RedfishError as error:
            reply = error.reply()
        reply.headers.setdefault("OData-Version", "4.0")
        reply.headers.setdefault("Cache-Control", "no-cache")
        return reply

    def empty_answer(self, request: Request, status: int) -> Reply:
        if status >= 400:
            return error_for_status(status, request.path, request.method)
        return Reply(status, {"Content-Type": JSON})

    @staticmethod
    def _check_method(request: Request) -> None:
        if request.method not in _METHODS:
            raise RedfishError("MethodUnknown", request.method)

    def _check_versions(self, request: Request, path: str) -> None:
        if (request.header("OData-Version") or "4.0").strip() != "4.0":
            raise RedfishError("HeaderInvalid", "OData-Version")
        parts = request.query.replace("%24", "$").split("&")
        if any(part.startswith("$") and not self._takes(path, part) for part in parts):
            raise RedfishError("QueryNotSupported")

    def _takes(self, path: str, part: str) -> bool:
        if self._tree.shape is not None and self._tree.shape.takes(path, part):
            return True
        return part.startswith("$skip=") and self._diagnostics.has_pages(path)

    def _check_access(self, request: Request, path: str) -> None:
        if path in _PUBLIC and request.method in ("GET", "HEAD"):
            return
        if path in (SESSIONS, SESSIONS + "/Members") and request.method == "POST":
            return  # the credentials are in the body
        if self._sessions.account_of(request) is None:
            raise RedfishError("AuthenticationRequired")

    def _dispatch(self, request: Request, path: str, wishes: Mapping[str, Any]) -> Reply:
        archive = self._downloads.find(request.path, request.query)
        if archive is not None:
            return self._only(request, {"GET": lambda *_: self._downloads.reply(archive, request)}, wishes)
        handlers = self._handlers(path)
        if handlers is None:
            raise RedfishError("ResourceMissingAtURI", request.path)
        return self._only(request, handlers, wishes)

    @staticmethod
    def _only(request: Request, handlers: Mapping[str, Handler], wishes: Mapping[str, Any]) -> Reply:
        """Runs the method's handler; HEAD is a GET whose body is not sent."""
        allowed = sorted(set(handlers) | ({"HEAD"} if "GET" in handlers else set()))
        allow = {"Allow": ", ".join(allowed)}
        method = "GET" if request.method == "HEAD" else request.method
        if method not in handlers:
            raise RedfishError("OperationNotAllowed", request.method, headers=allow)
        try:
            reply = handlers[method](request, wishes)
        except RedfishError as error:
            error.headers.update(allow)
            raise
        reply.headers.update(allow)
        return reply

    def _handlers(self, path: str) -> Mapping[str, Handler] | None:
        """The methods of a resource; None where there is none."""
        if path == "/redfish":
            return _reader({"v1": ROOT + "/"})
        if path == ROOT + "/odata":
            return _reader(self._tree.odata())
        if path == ROOT + "/$metadata":
            return {"GET": lambda *_: _xml_reply(self._tree.metadata())}
        if (file := schema_file(path)) is not None:
            return {"GET": lambda *_: file}
        if path in RESETS and self._tree.shape is None:
            return {"POST": lambda request, _: self._reset(request, path)}
        if path == EXPORT and self._can_export:
            return {"POST": self._export}
        if path == SESSIONS:
            return {**_reader(self._session_collection()), "POST": self._log_in}
        if path == SESSIONS + "/Members":
            return {"POST": self._log_in}
        if path.startswith(SESSIONS + "/"):
            return self._session_handlers(path[len(SESSIONS) + 1 :])
        if path == self._tree.tasks:
            return _reader(self._task_collection())
        if path.startswith(self._tree.tasks + "/"):
            return self._task_handlers(path[len(self._tree.tasks) + 1 :])
        handlers = self._diagnostics.handlers(path)
        if handlers is None and self._tree.shape is not None:
            handlers = self._tree.shape.handlers(path)
        if handlers is not None:
            return handlers
        document = self._tree.documents.get(path)
        return None if document is None else _reader(document)

    # --- sessions ---------------------------------------------------------------------------

    def _session_collection(self) -> Document:
        return collection(SESSIONS, "Session", "Session Collection", self._sessions.all())

    def _log_in(self, request: Request, _: Mapping[str, Any]) -> Reply:
        body = request_object(request)
        for name in ("UserName", "Password"):
            if name not in body:
                raise RedfishError("PropertyMissing", name)
            if not isinstance(body[name], str):
                raise RedfishError("PropertyValueTypeError", name)
        for name in body:
            if name not in ("UserName", "Password"):
                raise RedfishError("PropertyUnknown", name)
        if not self._sessions.knows(body["UserName"], body["Password"]):
            raise RedfishError("AuthenticationRequired")
        session = self._sessions.open(body["UserName"])
        headers = {"X-Auth-Token": session.token, "Location": f"{SESSIONS}/{session.id}"}
        return reply_with(_session_document(session), 201, headers)

    def _session_handlers(self, id_: str) -> Mapping[str, Handler] | None:
        session = self._sessions.all().get(id_)
        if session is None:
            return None

        def log_out(request: Request, _: Mapping[str, Any]) -> Reply:
            account = self._account(request)
            if account.user != session.user and account.role != "Administrator":
                raise RedfishError("InsufficientPrivilege")
            self._sessions.close(id_)
            return Reply(204)

        return {**_reader(_session_document(session)), "DELETE": log_out}

    def _account(self, request: Request) -> Account:
        """Who asks; for requests that were let in already."""
        account = self._sessions.account_of(request)
        if account is None:
            raise RedfishError("AuthenticationRequired")
        return account

    # --- resets -----------------------------------------------------------------------------

    def _reset(self, request: Request, target: str) -> Reply:
        """Of the host, which takes no time here, or of the BMC itself, which forgets sessions and tasks."""
        if self._account(request).role == "ReadOnly":
            raise RedfishError("InsufficientPrivilege")
        wanted, action = request_object(request).get("ResetType"), target.rpartition("/")[2]
        if wanted is None:
            raise RedfishError("ActionParameterMissing", action, "ResetType")
        if wanted not in RESETS[target]:
            raise RedfishError("ActionParameterValueNotInList", action, "ResetType", str(wanted))
        if target == MANAGER_RESET:
            self._sessions.forget()
            self._tasks.clear()
        else:
            self._tree.set_power(RESETS[target][wanted])
        return Reply(204)

    # --- tasks ------------------------------------------------------------------------------

    def _task_collection(self) -> Document:
        present = [name for name, task in self._tasks.items() if not task.is_gone]
        return collection(self._tree.tasks, "Task", "Task Collection", present)

    def _task_handlers(self, name: str) -> Mapping[str, Handler] | None:
        if name in self._tasks:
            return {"GET": lambda request, wishes: self._poll(name, request, wishes)}
        parent, _, last = name.rpartition("/")
        if last == "Monitor" and parent in self._tasks:
            return {"GET": lambda request, wishes: self._poll(parent, request, wishes, monitor=True)}
        return None

    def _poll(
        self, name: str, request: Request, wishes: Mapping[str, Any], monitor: bool = False
    ) -> Reply:
        task = self._tasks[name]
        if request.method == "GET":
            task.advance()
        self._diagnostics.settle()
        if task.is_gone:
            raise RedfishError("ResourceMissingAtURI", request.path)
        document = task.document(f"{self._tree.tasks}/{name}", wishes)
        if monitor and isinstance(task, DiagnosticTask):
            return self._diagnostics.monitor(task, document)
        self._announce(document, task.archive)
        unfinished = monitor and document.get("TaskState") not in ENDED
        return reply_with(document, 202 if unfinished else 200)

    def _announce(self, document: Document, archive: Archive) -> None:
        """Whatever path a client was told, the archive is found there."""
        path = document.get("Oem", {}).get("Tavrin", {}).get("FFDCForDownloading", {}).get("Path")
        if path:
            self._downloads.announce(path, archive)

    def _export(self, request: Request, wishes: Mapping[str, Any]) -> Reply:
        if self._account(request).role == "ReadOnly":
            raise RedfishError("InsufficientPrivilege")
        body = request_object(request)
        _check_export(body)
        task = self._new_task(body["DataCollectionType"], wishes)
        if body.get("ExportURI"):
            task.upload_to(body["ExportURI"], body.get("Username", ""), body.get("Password", ""))
        uri = f"{self._tree.tasks}/{task.id}"
        headers = {"Location": uri + "/Monitor", "Retry-After": "5"}
        return reply_with(task.document(uri, wishes), 202, headers)

    def _new_task(self, kind: str, wishes: Mapping[str, Any]) -> ExportTask:
        """A task under the Id that the scenario wishes, so that it is also found under it."""
        archive = self._archives[MINI if kind == "Mini-log" else FULL]
        path = wishes.get("path", archive.remote_path)
        return self._keep(lambda id_: ExportTask(id_, kind, archive, self._walk, path), wishes.get("id"))

    def _new_collection(self, make: Callable[[Any, Walk], DiagnosticTask]) -> tuple[DiagnosticTask, str]:
        """A task of the standard's action, and where it is found."""
        task = self._keep(lambda id_: make(id_, self._walk))
        return task, f"{self._tree.tasks}/{task.id}"

    def _keep(self, make: Callable[[Any], ExportTask], wished: Any = None) -> ExportTask:
        self._last_task += 1
        id_ = str(self._last_task) if wished is None else wished
        task = make(id_)
        while len(self._tasks) >= _LARGEST_TASK_COUNT:
            del self._tasks[next(iter(self._tasks))]
        self._tasks[str(id_).rstrip("/")] = task
        return task


def _reader(document: Document) -> dict[str, Handler]:
    """GET of a document that is as it is, with its ETag."""

    def read(request: Request, _: Mapping[str, Any]) -> Reply:
        reply = reply_with(document)
        tag = _tag(document)
        if tag in (request.header("If-None-Match") or ""):
            return Reply(304, {"ETag": tag})
        reply.headers["ETag"] = tag
        return reply

    return {"GET": read}


def _tag(document: Document) -> str:
    return f'"{hashlib.sha256(as_json(document)).hexdigest()[:32]}"'


def _xml_reply(text: str) -> Reply:
    return Reply(200, {"Content-Type": "application/xml; charset=utf-8"}, BytesBody(text.encode()))


def _session_document(session: Session) -> Document:
    return resource(
        f"{SESSIONS}/{session.id}", "Session", "1_5_0", "User Session",
        UserName=session.user, Password=None, SessionType="Redfish", CreatedTime=iso(session.created),
    )


def _check_export(body: Mapping[str, Any]) -> None:
    """The parameters' names, types and values."""
    for name, value in body.items():
        if name not in _EXPORT_TYPES:
            raise RedfishError("ActionParameterUnknown", EXPORT_NAME, name)
        if type(value) is not _EXPORT_TYPES[name]:
            raise RedfishError("ActionParameterValueTypeError", EXPORT_NAME, name)
    for name in _EXPORT_NEEDS:
        if name not in body:
            raise RedfishError("ActionParameterMissing", EXPORT_NAME, name)
    kind = body["DataCollectionType"]
    if kind not in COLLECTIONS:
        raise RedfishError("ActionParameterValueNotInList", EXPORT_NAME, "DataCollectionType", kind)
    if body.get("ExportURI") and not usable_uri(body["ExportURI"]):
        raise RedfishError("ActionParameterValueFormatError", EXPORT_NAME, "ExportURI")
    if "\0" in body.get("Username", "") + body.get("Password", ""):
        raise RedfishError("ActionParameterValueFormatError", EXPORT_NAME, "Password")
