# SPDX-License-Identifier: Apache-2.0
"""What becomes of datagrams on the way to the BMC and back."""

from __future__ import annotations

import asyncio
import random
from typing import Callable

from bmc.ipmi.settings import NetworkSettings

_HELD_BACK = 0.05  # seconds: long enough for the next datagram to come first


class Network:
    """Loses, doubles and holds back datagrams, the same ones for the same seed and the same order."""

    def __init__(self, settings: NetworkSettings) -> None:
        self._settings = settings
        self._random = random.Random(settings.seed)

    def carry(self, deliver: Callable[[], None]) -> None:
        if self._happens(self._settings.loss):
            return
        self._send(deliver)
        if self._happens(self._settings.duplicates):
            self._send(deliver)

    def _send(self, deliver: Callable[[], None]) -> None:
        if self._happens(self._settings.reordered):
            asyncio.get_running_loop().call_later(_HELD_BACK, deliver)
        else:
            deliver()

    def _happens(self, percent: float) -> bool:
        return percent > 0 and self._random.random() * 100 < percent
