# SPDX-License-Identifier: Apache-2.0
"""What goes wrong: as the CIM status of an operation, or as an HTTP answer before there is one."""

from __future__ import annotations

FAILED, ACCESS_DENIED, INVALID_NAMESPACE, INVALID_PARAMETER, INVALID_CLASS, NOT_FOUND = range(1, 7)
NOT_SUPPORTED = 7
METHOD_NOT_AVAILABLE, METHOD_NOT_FOUND = 16, 17

NAMES = {
    1: "CIM_ERR_FAILED",
    2: "CIM_ERR_ACCESS_DENIED",
    3: "CIM_ERR_INVALID_NAMESPACE",
    4: "CIM_ERR_INVALID_PARAMETER",
    5: "CIM_ERR_INVALID_CLASS",
    6: "CIM_ERR_NOT_FOUND",
    7: "CIM_ERR_NOT_SUPPORTED",
    8: "CIM_ERR_CLASS_HAS_CHILDREN",
    9: "CIM_ERR_CLASS_HAS_INSTANCES",
    10: "CIM_ERR_INVALID_SUPERCLASS",
    11: "CIM_ERR_ALREADY_EXISTS",
    12: "CIM_ERR_NO_SUCH_PROPERTY",
    13: "CIM_ERR_TYPE_MISMATCH",
    14: "CIM_ERR_QUERY_LANGUAGE_NOT_SUPPORTED",
    15: "CIM_ERR_INVALID_QUERY",
    16: "CIM_ERR_METHOD_NOT_AVAILABLE",
    17: "CIM_ERR_METHOD_NOT_FOUND",
}


class CimError(Exception):
    """A CIM status. The description is the code's name and what it is about."""

    def __init__(self, code: int, about: str = "") -> None:
        self.code = code
        name = NAMES.get(code, f"CIM status {code}")
        self.description: str | None = f"{name}: {about}" if about else name
        super().__init__(self.description)


class Refusal(Exception):
    """An HTTP status in place of a CIM answer, with the two headers that explain it."""

    def __init__(self, status: int, cim_error: str | None = None, detail: str | None = None) -> None:
        super().__init__(f"{status} {cim_error or ''} {detail or ''}")
        self.status = status
        self.cim_error = cim_error
        self.detail = detail
