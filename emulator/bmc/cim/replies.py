# SPDX-License-Identifier: Apache-2.0
"""Makes HTTP answers: of operations, of refusals, of what a scenario wants sent instead."""

from __future__ import annotations

import random
from dataclasses import replace

from bmc.cim.answers import CimAnswer
from bmc.cim.errors import CimError, Refusal
from bmc.cim.markup import DECLARATION
from bmc.cim.messages import Call, Envelope, error_element
from bmc.cim.paths import encoded
from bmc.cim.wire import HttpReply, HttpRequest
from bmc.http.bodies import BytesBody

_XML = ("Content-Type", "application/xml; charset=utf-8")
_TRAILERS = ("Trailer", "CIMStatusCode, CIMStatusCodeDescription, Content-Language")
_LARGEST_CHUNK = 1 << 20
_ENTITY_FAN = 10


def refused(refusal: Refusal) -> HttpReply:
    """Deliberate: neither length nor body nor end of the connection, as the real server answers."""
    headers = []
    if refusal.cim_error:
        headers.append(("CIMError", refusal.cim_error))
    if refusal.detail:
        headers.append(("PGErrorDetail", encoded(refusal.detail)))
    return HttpReply(refusal.status, headers)


def unauthorized(challenge: str | None, first: bool) -> HttpReply:
    """The reason is told only to those who brought no credentials."""
    headers = [("PGErrorDetail", encoded("User Unauthorized"))] if first else []
    headers.append(("content-length", f"{0:010}"))
    if challenge is not None:
        headers.append(("WWW-Authenticate", challenge))
    return HttpReply(401, headers)


def scripted(answer: CimAnswer) -> HttpReply:
    """A status or a body from the scenario; a status alone is sent as the real server would."""
    status = 200 if answer.status is None else answer.status
    if answer.body is not None:
        headers = [_XML, ("content-length", f"{answer.body.size:010}")]
        if status == 200:
            headers.append(("CIMOperation", "MethodResponse"))
        return HttpReply(status, headers, answer.body)
    return HttpReply(status, [("content-length", f"{0:010}")] if status in (200, 401) else [])


def answered(
    request: HttpRequest, call: Call, content: str, error: CimError | None, answer: CimAnswer
) -> HttpReply:
    """A CIM answer. With trailers a CIM error stands there and nowhere else."""
    chunked = request.wants_trailers if answer.chunked is None else answer.chunked
    if error is not None:
        content = "" if chunked else error_element(error)
    body = BytesBody(_document(call, content, answer))
    reply = HttpReply(200, _headers(request, body.size, chunked), body)
    if chunked:
        reply.chunk_size = answer.chunk_size or _LARGEST_CHUNK
        reply.trailer = _trailer(error)
    return reply


def _headers(request: HttpRequest, size: int, chunked: bool) -> list[tuple[str, str]]:
    length = ("transfer-encoding", "chunked") if chunked else ("content-length", f"{size:010}")
    headers, prefix = [_XML, length], ""
    if request.method == "M-POST":
        number = random.randrange(10, 100)
        prefix = f"{number}-"
        headers += [
            ("Ext", ""),
            ("Cache-Control", "no-cache"),
            ("Man", f"http://www.dmtf.org/cim/mapping/http/v1.0; ns={number}"),
        ]
    headers.append((prefix + "CIMOperation", "MethodResponse"))
    return headers + ([_TRAILERS] if chunked else [])


def _trailer(error: CimError | None) -> list[tuple[str, str]]:
    if error is None:
        return []
    lines = [("CIMStatusCode", str(error.code))]
    if error.description is not None:
        lines.append(("CIMStatusCodeDescription", encoded(error.description)))
    return lines


def _document(call: Call, content: str, answer: CimAnswer) -> bytes:
    envelope = Envelope.of(call)
    for name in ("message_id", "protocol", "method"):
        if getattr(answer, name) is not None:
            envelope = replace(envelope, **{name: getattr(answer, name)})
    text = envelope.around(content)
    if answer.entities is not None:
        text = _with_entities(text, answer.entities)
    if not answer.declaration:
        text = text[len(DECLARATION) :]
    return text.encode("utf-8", "surrogatepass")[: answer.truncate]


def _with_entities(text: str, depth: int) -> str:
    """Entities that each hold the one before ten times, and the last of them as the first value."""
    lines = ['<!ENTITY e0 "expanded">']
    for number in range(1, depth + 1):
        lines.append(f'<!ENTITY e{number} "{f"&e{number - 1};" * _ENTITY_FAN}">')
    types = "<!DOCTYPE CIM [\n" + "\n".join(lines) + "\n]>\n"
    start, mark, rest = text.partition("<VALUE>")
    if mark:
        start, rest = start + mark + f"&e{depth};", rest.partition("</VALUE>")[2]
        rest = "</VALUE>" + rest
    return DECLARATION + types + start[len(DECLARATION) :] + rest
