# SPDX-License-Identifier: Apache-2.0
"""The message registries of the service (DSP0266, DSP0268), and messages as objects."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any, Mapping

from bmc.events import EVENTS, count_of_places, filled

BASE, BASE_VERSION = "Base", "1.12.0"
TASK, TASK_VERSION = "TaskEvent", "1.0.1"
OEM, OEM_VERSION = "TavrinMessages", "1.0.0"


@dataclass(frozen=True)
class Message:
    """One entry of a message registry."""

    status: int  # of an answer that is this message; 0: it never is one
    severity: str
    text: str
    resolution: str

    @property
    def arguments(self) -> int:
        """How many values the text has places for."""
        return count_of_places(self.text)


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
        "SessionLimitExceeded": Message(
            503, "Critical", "There are as many sessions as the service can hold.",
            "Close a session, or wait until one has ended.",
        ),
        "ResourceCreated": Message(201, "OK", "The resource has been created.", "None."),
    },
    TASK: {
        "TaskStarted": Message(0, "OK", "Task %1 has started.", "None."),
        "TaskProgressChanged": Message(0, "OK", "Task %1 is %2 percent complete.", "None."),
        "TaskPaused": Message(0, "Warning", "Task %1 has been paused.", "None."),
        "TaskResumed": Message(0, "OK", "Task %1 has been resumed.", "None."),
        "TaskCompletedOK": Message(0, "OK", "Task %1 has completed.", "None."),
        "TaskCompletedWarning": Message(0, "Warning", "Task %1 has completed with warnings.", "None."),
        "TaskAborted": Message(0, "Critical", "Task %1 has been aborted.", "None."),
        "TaskCancelled": Message(0, "Warning", "Task %1 has been cancelled.", "None."),
    },
    OEM: {
        "Note": Message(0, "OK", "%1", "None."),
        "DiagnosticDataCollected": Message(0, "OK", "Diagnostic data was collected.", "None."),
        "SensorThresholdOK": Message(0, "OK", "Sensor %1 crossed a threshold.", "None."),
        "SensorThresholdWarning": Message(
            0, "Warning", "Sensor %1 crossed a threshold.", "Look after what it measures."
        ),
        "SensorThresholdCritical": Message(
            0, "Critical", "Sensor %1 crossed a threshold.", "Look after what it measures."
        ),
        **{kind.name: Message(0, kind.severity, kind.text, kind.resolution) for kind in EVENTS},
        "ExportLoginRefused": Message(
            0, "Critical", "The file store %1 refused the login of user %2.",
            "Correct the user or the password of the export, and start it again.",
        ),
        "ExportHostUnknown": Message(
            0, "Critical", "The host of the file store %1 is not known.",
            "Correct the URI of the export, or the name service of the management controller.",
        ),
        "ExportUnreachable": Message(
            0, "Critical", "The file store %1 cannot be reached.",
            "Check that it runs, and the network between it and the management controller.",
        ),
        "ExportTimedOut": Message(
            0, "Critical", "The file store %1 did not answer in time.",
            "Check the network between it and the management controller.",
        ),
        "ExportDenied": Message(
            0, "Critical", "The file store %1 does not take the file %2.",
            "Check that the folder exists, and that the user may write in it.",
        ),
        "ExportStoreFull": Message(
            0, "Critical", "The file store %1 is full.", "Make room in it, and start the export again."
        ),
        "ExportFailed": Message(
            0, "Critical", "The upload to the file store %1 failed: %2",
            "Check the file store, and start the export again.",
        ),
        "MethodUnknown": Message(
            501, "Critical", "The method %1 is not one that this service knows.",
            "Use a method of the Redfish standard.",
        ),
        # Clients look for this sentence in the body to tell a refusal from everything else.
        "AuthenticationRequired": Message(
            401, "Critical",
            "The request requires user authentication which has not yet been provided or invalid.",
            "Give the name and the password of an account, or the token of a session.",
        ),
    },
}
VERSIONS: Mapping[str, str] = {BASE: BASE_VERSION, TASK: TASK_VERSION, OEM: OEM_VERSION}


def registry_of(name: str) -> str:
    return next(registry for registry, messages in MESSAGES.items() if name in messages)


def message_id(name: str) -> str:
    """Base.1.12.GeneralError: major and minor version only."""
    registry = registry_of(name)
    return f"{registry}.{VERSIONS[registry].rpartition('.')[0]}.{name}"


def message_object(name: str, *args: str) -> dict[str, Any]:
    """The message as it stands in @Message.ExtendedInfo and in a task's Messages."""
    message = MESSAGES[registry_of(name)][name]
    return {
        "@odata.type": "#Message.v1_1_2.Message",
        "MessageId": message_id(name),
        "Message": filled(message.text, args),
        "MessageArgs": list(args),
        "MessageSeverity": message.severity,
        "Severity": message.severity,
        "Resolution": message.resolution,
    }


def log_message(name: str, *args: str) -> dict[str, Any]:
    """The message as it stands in an entry of a log."""
    message = MESSAGES[registry_of(name)][name]
    return {
        "Severity": message.severity,
        "Message": filled(message.text, args),
        "MessageId": message_id(name),
        "MessageArgs": list(args),
        "Resolution": message.resolution,
    }
