# SPDX-License-Identifier: Apache-2.0
"""How long the BMC lives: until its standard input closes or a signal comes, and not a second more."""

from __future__ import annotations

import os
import shutil
import signal
import sys
import threading
from pathlib import Path
from typing import Callable


class Lifetime:
    """Ends the process from wherever it stands: open transfers are dropped, not waited for."""

    def __init__(self, temporary_folder: Path | None) -> None:
        self._folder = temporary_folder
        self._guard = threading.Lock()
        self._ending: int | None = None  # the thread that ends the process
        self._before: list[Callable[[], None]] = []

    def before_end(self, action: Callable[[], None]) -> None:
        self._before.append(action)

    def watch(self) -> None:
        """Starts to listen for the end."""
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            signal.signal(number, lambda *_: self.end(0))
        threading.Thread(target=self._wait_for_input_end, daemon=True).start()

    def _wait_for_input_end(self) -> None:
        try:
            while os.read(sys.stdin.fileno(), 4096):
                pass
        except (OSError, ValueError):
            pass  # never opened, or gone: nobody is there either
        self.end(0)

    def end(self, code: int, complaint: str | None = None) -> None:
        """Does not return, except to itself when a signal interrupts it.

        The complaint is for standard error, unless the end was coming already: then what failed
        failed because of it.
        """
        if self._ending == threading.get_ident():
            return
        if not self._guard.acquire(blocking=False):
            threading.Event().wait()  # the other thread is about to end the process
        self._ending = threading.get_ident()
        if complaint:
            print(complaint, file=sys.stderr, flush=True)
        for action in self._before:
            action()
        self._remove_folder()
        os._exit(code)

    def _remove_folder(self) -> None:
        """More than one try: the other thread may still be making the archives."""
        for _ in range(20):
            if self._folder is None or not self._folder.exists():
                return
            shutil.rmtree(self._folder, ignore_errors=True)
