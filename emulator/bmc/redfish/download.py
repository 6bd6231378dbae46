# SPDX-License-Identifier: Apache-2.0
"""Hands out archives: whole, or in parts where the scenario lets clients go on after a cut."""

from __future__ import annotations

import base64
import posixpath
from email.utils import formatdate
from typing import Mapping
from urllib.parse import quote, unquote

from bmc.archive import Archive
from bmc.http.bodies import BytesBody, FileBody
from bmc.http.messages import Reply, Request
from bmc.http.ranges import NotSatisfiable, still_valid, wanted_part
from bmc.redfish.settings import DownloadSettings


class Downloads:
    """The archives by their paths. Later ones take the place of the first, under the same paths."""

    def __init__(
        self, archives: Mapping[str, Archive], later: Mapping[str, Archive], settings: DownloadSettings
    ) -> None:
        self._later = later
        self._settings = settings
        self._by_path = {normal(a.remote_path): a for a in archives.values()}
        self._queries: dict[str, str] = {}
        self._served = 0

    def announce(self, path: str, archive: Archive, query: str = "") -> None:
        """Whatever path a client was told, the archive is found there, and with this query alone if there is one."""
        self._by_path[normal(path)] = archive
        self._queries[normal(path)] = query

    def find(self, path: str, query: str) -> Archive | None:
        wanted = self._queries.get(normal(path), "")
        return self._by_path.get(normal(path)) if wanted in ("", query) else None

    def reply(self, archive: Archive, request: Request) -> Reply:
        archive = self._present(archive, request.method)
        headers = self._headers(archive)
        if not self._settings.ranges or request.method != "GET":
            return Reply(200, headers, FileBody(archive.file))
        validator = request.header("If-Range") if self._settings.heed_if_range else None
        asked = request.header("Range")
        if not still_valid(validator, headers.get("ETag"), headers.get("Last-Modified")):
            asked = None
        return _part(archive, asked, headers)

    def _present(self, archive: Archive, method: str) -> Archive:
        """The archive that lies there by now."""
        after = self._settings.replaced_after
        is_replaced = after is not None and self._served >= after
        if method == "GET":
            self._served += 1
        return self._later.get(archive.kind, archive) if is_replaced else archive

    def _headers(self, archive: Archive) -> dict[str, str]:
        headers = {
            "Content-Type": archive.content_type,
            "Accept-Ranges": "bytes" if self._settings.ranges else "none",
        }
        if archive.name:
            headers["Content-Disposition"] = f"attachment; filename*=UTF-8''{quote(archive.name)}"
        if archive.tells_digest:
            digest = base64.b64encode(bytes.fromhex(archive.sha256)).decode()
            headers["Repr-Digest"] = f"sha-256=:{digest}:"
        if self._settings.etag != "none":
            weak = "W/" if self._settings.etag == "weak" else ""
            headers["ETag"] = f'{weak}"{archive.sha256[:32]}"'
        if self._settings.last_modified:
            headers["Last-Modified"] = formatdate(archive.file.stat().st_mtime, usegmt=True)
        return headers


def normal(path: str) -> str:
    """Clients write the same path in several ways: escapes, dots, doubled slashes."""
    return posixpath.normpath("/" + unquote(path).lstrip("/"))


def _part(archive: Archive, asked: str | None, headers: dict[str, str]) -> Reply:
    try:
        part = wanted_part(asked, archive.size)
    except NotSatisfiable:
        return Reply(416, {**headers, "Content-Range": f"bytes */{archive.size}"}, BytesBody())
    if part is None:
        return Reply(200, headers, FileBody(archive.file))
    first, end = part
    headers["Content-Range"] = f"bytes {first}-{end - 1}/{archive.size}"
    return Reply(206, headers, FileBody(archive.file, first, end - first))
