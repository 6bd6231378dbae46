# SPDX-License-Identifier: Apache-2.0
"""What Redfish resources are put together from, and how they travel."""

from __future__ import annotations

import json
from typing import Any, Iterable, Mapping

from bmc.http.bodies import BytesBody
from bmc.http.messages import Reply, Request
from bmc.redfish.errors import RedfishError
from bmc.redfish.schemas import description_of

JSON = "application/json; charset=utf-8"

Document = dict[str, Any]


def link(path: str) -> dict[str, str]:
    return {"@odata.id": path}


def collection(path: str, type_: str, name: str, members: Iterable[str]) -> Document:
    """A collection resource with links to its members."""
    links = [link(f"{path}/{member}") for member in members]
    return {
        "@odata.id": path,
        "@odata.type": f"#{type_}Collection.{type_}Collection",
        "Name": name,
        "Members@odata.count": len(links),
        "Members": links,
    }


def resource(path: str, type_: str, version: str, name: str, **members: Any) -> Document:
    """A single resource; its Id is the last piece of its path unless told."""
    return {
        "@odata.id": path,
        "@odata.type": f"#{type_}.v{version}.{type_}",
        "Id": path.rpartition("/")[2],
        "Name": name,
        **members,
    }


def reply_with(document: Document, status: int = 200, headers: Mapping[str, str] | None = None) -> Reply:
    """A resource with the link to its schema."""
    own = {"Content-Type": JSON, **description_of(document)}
    return Reply(status, {**own, **(headers or {})}, BytesBody(as_json(document)))


def as_json(document: Document) -> bytes:
    return json.dumps(document, separators=(",", ":")).encode()


def request_object(request: Request) -> Document:
    """The body of a request, which is to be a JSON object."""
    try:
        body = json.loads(request.body.decode("utf-8"))
    except (ValueError, RecursionError):
        raise RedfishError("MalformedJSON") from None
    if not isinstance(body, dict):
        raise RedfishError("UnrecognizedRequestBody")
    return body
