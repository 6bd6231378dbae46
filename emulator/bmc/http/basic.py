# SPDX-License-Identifier: Apache-2.0
"""Basic authentication (RFC 7617)."""

from __future__ import annotations

import base64
import binascii


def basic_credentials(authorization: str | None) -> bytes | None:
    """user:password as they were sent, in whatever encoding; None: the header has no such thing."""
    scheme, _, token = (authorization or "").partition(" ")
    if scheme.lower() != "basic":
        return None
    try:
        return base64.b64decode(token.strip(), validate=True)
    except (binascii.Error, ValueError):
        return None
