# SPDX-License-Identifier: Apache-2.0
"""Error objects in the form of the Redfish standard (DSP0266), with messages of its Base registry."""

from __future__ import annotations

import json
from typing import Mapping

from bmc.http.bodies import BytesBody
from bmc.http.messages import Reply
from bmc.redfish.registries import MESSAGES, message_object, registry_of

_BY_STATUS = {
    401: "AuthenticationRequired",
    403: "InsufficientPrivilege",
    404: "ResourceMissingAtURI",
    405: "OperationNotAllowed",
    412: "HeaderInvalid",
    413: "PayloadTooLarge",
    500: "InternalError",
    501: "QueryNotSupported",
    503: "ServiceTemporarilyUnavailable",
}


class RedfishError(Exception):
    """Ends the handling of a request with an error object."""

    def __init__(self, name: str, *args: str, headers: Mapping[str, str] | None = None) -> None:
        super().__init__(name, *args)
        self.name = name
        self.args_of_message = args
        self.headers = dict(headers or {})

    def reply(self) -> Reply:
        return error_reply(self.name, *self.args_of_message, headers=self.headers)


def error_reply(
    name: str, *args: str, status: int | None = None, headers: Mapping[str, str] | None = None
) -> Reply:
    """An answer with an error object; the status is the message's own unless told."""
    info = message_object(name, *args)
    error = {"code": info["MessageId"], "message": info["Message"], "@Message.ExtendedInfo": [info]}
    status = status or MESSAGES[registry_of(name)][name].status
    return Reply(
        status,
        {"Content-Type": "application/json; charset=utf-8", **_usual_headers(status), **(headers or {})},
        BytesBody(json.dumps({"error": error}, separators=(",", ":")).encode()),
    )


def error_for_status(status: int, path: str, method: str) -> Reply:
    """The error object for a bare status."""
    name = _BY_STATUS.get(status, "GeneralError")
    args = {404: (path,), 405: (method,), 412: ("OData-Version",), 503: ("5",)}.get(status, ())
    return error_reply(name, *args, status=status)


def _usual_headers(status: int) -> dict[str, str]:
    if status == 401:
        return {"WWW-Authenticate": 'Basic realm="Redfish"'}
    return {"Retry-After": "5"} if status == 503 else {}
