# SPDX-License-Identifier: Apache-2.0
"""Parts of a file (RFC 9110, section 14): which bytes a request asks for."""

from __future__ import annotations

import re

_ONE_RANGE = re.compile(r"bytes *= *(\d*)-(\d*)", re.IGNORECASE)


class NotSatisfiable(Exception):
    """The file has none of the bytes: 416."""


def wanted_part(header: str | None, size: int) -> tuple[int, int] | None:
    """First byte and the one behind the last; None: the whole file, also where the header is of no known form."""
    found = _ONE_RANGE.fullmatch(header.strip()) if header else None
    if found is None or found[1] == found[2] == "":
        return None
    if found[1] == "":
        first, end = max(0, size - int(found[2])), size
    else:
        first = int(found[1])
        end = min(size, int(found[2]) + 1) if found[2] else size
        if found[2] and int(found[2]) < first:
            return None  # of no meaning, so it is not there
    if first >= end:
        raise NotSatisfiable
    return first, end


def still_valid(if_range: str | None, etag: str | None, last_modified: str | None) -> bool:
    """Whether what If-Range names is what is there; a weak ETag never is."""
    if if_range is None:
        return True
    named = if_range.strip()
    if named.startswith('"'):
        return named == etag
    return named == last_modified
