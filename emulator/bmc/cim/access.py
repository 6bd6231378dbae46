# SPDX-License-Identifier: Apache-2.0
"""What is looked at before an operation is carried out: the account, then the headers."""

from __future__ import annotations

import re
import secrets

from bmc.cim.errors import Refusal
from bmc.cim.messages import Call
from bmc.cim.paths import decoded, same_object
from bmc.cim.wire import HttpRequest
from bmc.http.basic import basic_credentials

_CONTENT_TYPE = re.compile(r'\s*(?:application|text)/xml\s*(?:;\s*charset\s*=\s*"?utf-8"?\s*)?', re.IGNORECASE)


class Account:
    """The BMC's one account."""

    def __init__(self, user: str, password: str) -> None:
        # Clients differ in how they write letters beyond ASCII.
        text = f"{user}:{password}"
        self._known = [text.encode("utf-8", "surrogateescape")]
        try:
            self._known.append(text.encode("latin-1"))
        except UnicodeEncodeError:
            pass

    def admits(self, authorization: str | None) -> bool:
        given = basic_credentials(authorization)
        return given is not None and any(secrets.compare_digest(given, known) for known in self._known)


def check_head(request: HttpRequest) -> None:
    """What can be said before the body is read as XML."""
    if request.version == "HTTP/1.1" and request.header("Host") is None:
        raise Refusal(400, detail="HTTP request message lacks a Host header field.")
    operation = request.cim_header("CIMOperation")
    if request.prefix is None or operation is None:
        raise Refusal(400)
    if operation.strip().lower() != "methodcall":
        raise Refusal(400, "unsupported-operation")
    if not _CONTENT_TYPE.fullmatch(request.header("Content-Type") or ""):
        raise Refusal(400, detail="HTTP Content-Type header error.")
    for name in ("CIMMethod", "CIMObject"):
        if request.cim_header(name) is None:
            raise Refusal(400, "header-mismatch", f"Missing {name} HTTP header.")


def check_match(request: HttpRequest, call: Call) -> None:
    """The headers say the same as the body."""
    version = (request.cim_header("CIMProtocolVersion") or "1.0").strip()
    if version != call.protocol:
        _mismatch("CIMProtocolVersion", version, "protocol version", call.protocol)
    if not re.fullmatch(r"1\.\d+", version):
        text = f'CIM protocol version "{version}" is not supported.'
        raise Refusal(501, "unsupported-protocol-version", text)
    method = decoded(request.cim_header("CIMMethod") or "")
    if method != call.method:
        _mismatch("CIMMethod", method, "method", call.method)
    named = decoded(request.cim_header("CIMObject") or "")
    if not _names(named, call):
        _mismatch("CIMObject", named, "object", call.object_text)


def _names(header: str, call: Call) -> bool:
    if call.target is None:
        return header.lower() == call.namespace.lower()
    return same_object(header, call.target)


def _mismatch(header: str, value: str, what: str, asked: str) -> None:
    text = f'{header} value "{value}" does not match CIM request {what} "{asked}".'
    raise Refusal(400, "header-mismatch", text)
