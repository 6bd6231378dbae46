# SPDX-License-Identifier: Apache-2.0
"""Cipher suites: which algorithms go together (IPMI v2.0, tables 13-17 to 13-19 and 22-20)."""

from __future__ import annotations

import hashlib
import hmac
from dataclasses import dataclass
from typing import Any


@dataclass(frozen=True)
class CipherSuite:
    """Numbers as on the wire; confidentiality is AES-CBC-128 in both."""

    number: int
    authentication: int
    integrity: int
    confidentiality: int
    hash: Any
    check_length: int  # bytes of an integrity check value

    @property
    def algorithms(self) -> tuple[int, int, int]:
        return self.authentication, self.integrity, self.confidentiality

    def digest(self, key: bytes, data: bytes) -> bytes:
        return hmac.new(key, data, self.hash).digest()

    def record(self) -> bytes:
        """What Get Channel Cipher Suites tells about it."""
        return bytes([0xC0, self.number, self.authentication,
                      0x40 | self.integrity, 0x80 | self.confidentiality])


SUITES = {
    3: CipherSuite(3, 1, 1, 1, hashlib.sha1, 12),
    17: CipherSuite(17, 3, 4, 1, hashlib.sha256, 16),
}
