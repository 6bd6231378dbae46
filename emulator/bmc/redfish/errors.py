# SPDX-License-Identifier: Apache-2.0
"""Error objects in the form of the Redfish standard (DSP0266), with messages of its Base registry."""

from __future__ import annotations

import json
from dataclasses import dataclass
from typing import Any, Mapping

from bmc.http.bodies import BytesBody
from bmc.http.messages import Reply

BASE, BASE_VERSION = "Base", "1.12.0"
OEM, OEM_VERSION = "TavrinMessages", "1.0.0"


@dataclass(frozen=True)
class Message:
    """One entry of a message registry."""

    status: int
    severity: str
    text: str
    resolution: str


MESSAGES: Mapping[str, Mapping[str, Message]] = {
    BASE: {
        "Success": Message(200, "OK", "The request completed successfully.", "None."),
        "GeneralError": Message(
            400, "Critical", "A general error has occurred.", "See ExtendedInfo for more information."
        ),
        "MalformedJSON": Message(
            400, "Critical", "The request body contains malformed JSON.", "Correct the body and try again."
        ),
        "UnrecognizedRequestBody": Message(
            400, "Warning", "The body of the request is not a JSON object.", "Send a JSON object."
        ),
        "PropertyMissing": Message(
            400, "Warning", "The property %1 is required and was not given.", "Add the property."
        ),
        "PropertyUnknown": Message(
            400, "Warning", "The property %1 is not one of this resource.", "Leave the property out."
        ),
        "PropertyValueTypeError": Message(
            400, "Warning", "The value of the property %1 has the wrong type.", "Correct the value."
        ),
        "ActionParameterMissing": Message(
            400, "Critical", "The action %1 needs the parameter %2.", "Add the parameter."
        ),
        "ActionParameterUnknown": Message(
            400, "Warning", "The action %1 has no parameter %2.", "Leave the parameter out."
        ),
        "ActionParameterValueTypeError": Message(
            400, "Warning", "The parameter %2 of the action %1 has the wrong type.", "Correct the value."
        ),
        "ActionParameterValueNotInList": Message(
            400, "Warning", "The value %3 of the parameter %2 of the action %1 is not in its list.",
            "Choose a value from the list.",
        ),
        "ActionParameterValueFormatError": Message(
            400, "Warning", "The value of the parameter %2 of the action %1 has a wrong format.",
            "Correct the value.",
        ),
        "InsufficientPrivilege": Message(
            403, "Critical", "The account has not the privileges that this operation needs.",
            "Use another account.",
        ),
        "ResourceMissingAtURI": Message(
            404, "Critical", "The resource at the URI %1 was not found.", "Use the URI of a resource."
        ),
        "OperationNotAllowed": Message(
            405, "Critical", "The method %1 is not allowed for this resource.", "See the Allow header."
        ),
        "HeaderInvalid": Message(412, "Critical", "The header %1 is invalid.", "Correct the header."),
        "PayloadTooLarge": Message(413, "Critical", "The request is too large.", "Send a smaller one."),
        "InternalError": Message(
            500, "Critical", "The service met an internal error.", "Send the request again."
        ),
        "QueryNotSupported": Message(
            501, "Warning", "Queries are not supported by this service.", "Leave the query out."
        ),
        "ServiceTemporarilyUnavailable": Message(
            503, "Critical", "The service is temporarily unavailable. Retry in %1 seconds.",
            "Wait and send the request again.",
        ),
        "ResourceCreated": Message(201, "OK", "The resource has been created.", "None."),
    },
    OEM: {
        # Clients look for this sentence in the body to tell a refusal from everything else.
        "AuthenticationRequired": Message(
            401, "Critical",
            "The request requires user authentication which has not yet been provided or invalid.",
            "Give the name and the password of an account, or the token of a session.",
        ),
    },
}
_VERSIONS = {BASE: BASE_VERSION, OEM: OEM_VERSION}
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


def registry_of(name: str) -> str:
    return next(registry for registry, messages in MESSAGES.items() if name in messages)


def message_id(name: str) -> str:
    """Base.1.12.GeneralError: major and minor version only."""
    registry = registry_of(name)
    return f"{registry}.{_VERSIONS[registry].rpartition('.')[0]}.{name}"


def message_object(name: str, *args: str) -> dict[str, Any]:
    """The message as it stands in @Message.ExtendedInfo and in a task's Messages."""
    message = MESSAGES[registry_of(name)][name]
    text = message.text
    for number, value in enumerate(args, 1):
        text = text.replace(f"%{number}", value)
    return {
        "@odata.type": "#Message.v1_1_2.Message",
        "MessageId": message_id(name),
        "Message": text,
        "MessageArgs": list(args),
        "MessageSeverity": message.severity,
        "Severity": message.severity,
        "Resolution": message.resolution,
    }


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
