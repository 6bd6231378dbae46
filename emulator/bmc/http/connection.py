# SPDX-License-Identifier: Apache-2.0
"""One connection of the web framework, which here also takes methods that its parser does not know.

The parser's answer to those would be 400; what is right is the service's business (RFC 9110, section 9.1).
"""

from __future__ import annotations

from typing import Any, Awaitable, Callable

from aiohttp import hdrs, web
from aiohttp.web_protocol import RequestHandler

from bmc.http.head import Head, NotHttp, read_head

Strange = Callable[[web.BaseRequest, Head], Awaitable[web.StreamResponse]]


class Connection(RequestHandler):
    """Hands a request of an unknown method to `strange`, without its body, and ends afterwards."""

    def __init__(self, server: web.Server, strange: Strange, **options: Any) -> None:
        super().__init__(server, **options)
        self._strange = strange
        self._newest = b""

    def data_received(self, data: bytes) -> None:
        self._newest = data
        super().data_received(data)

    def _make_error_handler(self, err_info: Any) -> Callable[[web.BaseRequest], Awaitable[web.StreamResponse]]:
        head = _with_unknown_method(self._newest)
        if head is None:
            return super()._make_error_handler(err_info)
        return lambda raw: self._strange(raw, head)


def _with_unknown_method(data: bytes) -> Head | None:
    """The head of a request that begins here; None: it is none, or the method is not what is wrong with it."""
    try:
        head = read_head(data.partition(b"\r\n\r\n")[0])
    except NotHttp:
        return None
    return None if head.method in hdrs.METH_ALL else head
