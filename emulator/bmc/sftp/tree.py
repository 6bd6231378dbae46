# SPDX-License-Identifier: Apache-2.0
"""The folders that a client sees. They exist here only: their names may be anything, and so the
contents lie on this machine's disk under numbers."""

from __future__ import annotations

import hashlib
import json
import os
import posixpath
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Iterator, Mapping, Sequence

from bmc.archive import FULL, plan_archive
from bmc.machine import Machine
from bmc.record import decoded
from bmc.sftp.settings import DEFAULT_FILES, FileSettings, SftpSettings

_ARCHIVES = (b".tgz", b".tzz", b".tar.gz")
_LINES = 600


@dataclass(frozen=True)
class Content:
    """What a file holds. Files of the same settings share one."""

    file: Path
    size: int
    sha256: str


@dataclass(frozen=True)
class Entry:
    """One line of a listing; a folder has no content."""

    name: bytes
    content: Content | None

    @property
    def is_folder(self) -> bool:
        return self.content is None


class Tree:
    """Folders, their entries in order, and what is found under a path."""

    def __init__(self, settings: SftpSettings, machine: Machine, store: Path) -> None:
        self._contents = _Contents(machine, store)
        self._folders: dict[bytes, list[Entry]] = {}
        self._files: dict[bytes, Content] = {}
        for folder, files in _all_files(settings, machine).items():
            self._add(folder.encode(), files)
        for path in list(self._folders):
            self._add_parents(path)

    def _add(self, folder: bytes, files: Sequence[FileSettings]) -> None:
        entries = self._folders.setdefault(_plain(folder), [])
        for file in files:
            content = None if file.is_folder else self._contents.of(file)
            entries.append(Entry(file.name, content))
            if content is None:
                self._folders.setdefault(_plain(folder + file.name), [])
                continue
            # Under every path that a client may take the name for, also one that leaves the folder.
            for path in (folder + file.name, posixpath.join(folder, file.name)):
                self._files[path] = content

    def _add_parents(self, path: bytes) -> None:
        """Folders above are there, and list what is below."""
        while path != b"/":
            path, name = posixpath.split(path)
            entries = self._folders.setdefault(path, [])
            if all(entry.name != name for entry in entries):
                entries.append(Entry(name, None))

    def listing(self, path: bytes) -> Sequence[Entry] | None:
        return self._folders.get(_plain(path))

    def content(self, path: bytes) -> Content | None:
        return self._files.get(path) or self._files.get(_plain(path))

    def facts(self) -> dict[str, Any]:
        """Every folder with its files: name, size, SHA-256, and where the content lies."""
        return {
            decoded(path.rstrip(b"/") + b"/"): [_described(entry) for entry in entries]
            for path, entries in self._folders.items() if entries
        }

    def write_facts(self, file: Path) -> None:
        file.write_text(json.dumps(self.facts()) + "\n", encoding="ascii")


def _plain(path: bytes) -> bytes:
    """Absolute, without ".", ".." and double slashes."""
    return b"/" + posixpath.normpath(b"/" + path).lstrip(b"/")


def _described(entry: Entry) -> dict[str, Any]:
    if entry.content is None:
        return {"name": decoded(entry.name), "folder": True}
    return {
        "name": decoded(entry.name),
        "size": entry.content.size,
        "sha256": entry.content.sha256,
        "file": str(entry.content.file),
    }


def _all_files(
    settings: SftpSettings, machine: Machine
) -> Mapping[str, Sequence[FileSettings]]:
    time = machine.now.strftime("%Y%m%d-%H%M%S")
    folders: dict[str, Sequence[FileSettings] | None] = {
        folder: [
            FileSettings(name.format(serial=machine.label, time=time).encode()) for name in names
        ]
        for folder, names in DEFAULT_FILES.items()
    }
    folders.update(settings.files)
    return {folder: files for folder, files in folders.items() if files is not None}


class _Contents:
    """Makes contents: archives by their names' endings, console logs for all other names."""

    def __init__(self, machine: Machine, store: Path) -> None:
        self._machine = machine
        self._store = store
        self._shared: dict[tuple[Any, ...], Content] = {}
        self._made = 0
        store.mkdir(mode=0o700, exist_ok=True)

    def of(self, file: FileSettings) -> Content:
        is_archive = file.text is None and file.name.lower().endswith(_ARCHIVES)
        if is_archive:
            return self._archive(file)
        key = (file.size, file.text)
        if key not in self._shared:
            self._shared[key] = self._written(self._pieces(file))
        return self._shared[key]

    def _archive(self, file: FileSettings) -> Content:
        name = self._next_name() + ".tar.gz"
        plan = plan_archive(self._machine, FULL, name, file.size, "sftp.files", file.is_damaged)
        archive = plan.make(self._store)
        return Content(archive.file, archive.size, archive.sha256)

    def _next_name(self) -> str:
        self._made += 1
        return str(self._made)

    def _pieces(self, file: FileSettings) -> Iterator[bytes]:
        if file.text is not None:
            yield file.text
            return
        lines = ("\n".join(self._machine.console_lines(_LINES)) + "\n").encode()
        left = len(lines) if file.size is None else file.size
        while left > 0:
            yield lines[:left]
            left -= len(lines)

    def _written(self, pieces: Iterator[bytes]) -> Content:
        file = self._store / self._next_name()
        digest = hashlib.sha256()
        with open(file, "wb", opener=lambda path, flags: os.open(path, flags, 0o600)) as out:
            for piece in pieces:
                digest.update(piece)
                out.write(piece)
        return Content(file, file.stat().st_size, digest.hexdigest())
