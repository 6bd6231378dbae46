# SPDX-License-Identifier: Apache-2.0
"""ExportData: an archive per data object, and where it goes."""

from __future__ import annotations

import asyncio
import logging
import posixpath
from pathlib import Path
from typing import Mapping
from urllib.parse import quote, urlsplit

from bmc.archive import Archive
from bmc.cim.archives import make_archive
from bmc.cim.settings import CimSettings, DataObject
from bmc.machine import Machine
from bmc.upload import upload, usable_uri

_LOG = logging.getLogger("emulated-bmc")

COMPLETED, TIMEOUT, FAILED, INVALID_PARAMETER, IN_USE = 0, 3, 4, 5, 6
NEVER_EXPORTED = "4"
_SCHEMES = ("sftp", "tftp")
_CURL_TIMED_OUT = 28


class Exporter:
    """Keeps one archive per data object and uploads it when asked. One export runs at a time."""

    def __init__(self, machine: Machine, folder: Path, settings: CimSettings) -> None:
        folder.mkdir(mode=0o700, exist_ok=True)
        self._settings = settings
        self._labels = _labels(settings)
        self._running = asyncio.Lock()
        self.archives: Mapping[str, Archive] = {
            item.id: self._make(machine, folder, item) for item in settings.data
        }

    def _make(self, machine: Machine, folder: Path, item: DataObject) -> Archive:
        stamp = machine.now.strftime("%Y%m%d-%H%M%S")
        name = f"ffdc_{machine.label}_{stamp}_{self._labels[item.id]}.tar.gz"
        facts = {"DataObject": item.id, "DataCollectionType": item.type}
        return make_archive(machine, folder / name, facts, self._settings.archive_size)

    async def export(self, item: DataObject, uri: str, user: str, password: str) -> int:
        """Collects and uploads; the method's return value."""
        if self._running.locked():
            return IN_USE
        async with self._running:
            await asyncio.sleep(self._settings.seconds)
            if not self._settings.upload:
                return COMPLETED
            target = self.target(item, uri)
            if target is None:
                return INVALID_PARAMETER
            failure = await upload(self.archives[item.id].file, target, user, password)
        if failure is None:
            return COMPLETED
        _LOG.warning("the upload of %s failed: %s", item.id, failure)
        return TIMEOUT if failure.code == _CURL_TIMED_OUT else FAILED

    def target(self, item: DataObject, uri: str) -> str | None:
        """The whole URI of the file to be written; None where `uri` cannot be one.

        A folder gets the archive under its own name. A file keeps its name if it is the only one
        that this BMC exports; otherwise each object's label goes before the ending, so that the
        last export does not overwrite the ones before it.
        """
        if not usable_uri(uri) or urlsplit(uri).scheme.lower() not in _SCHEMES:
            return None
        start, path = _split(uri)
        folder, name = posixpath.split(path or "/")
        if not name:
            name = quote(self.archives[item.id].name)
        elif len(self._exported()) > 1:
            name = _labelled(name, self._labels[item.id])
        return start + posixpath.join(folder, name)

    def _exported(self) -> list[DataObject]:
        return [item for item in self._settings.data if item.type != NEVER_EXPORTED]


def _labels(settings: CimSettings) -> dict[str, str]:
    """A short word per object for file names: its type, or its number where types repeat."""
    types = [item.type for item in settings.data]
    return {
        item.id: item.type if item.type.isalnum() and types.count(item.type) == 1 else f"object{number}"
        for number, item in enumerate(settings.data, 1)
    }


def _split(uri: str) -> tuple[str, str]:
    """Scheme with authority, and the path as it was written."""
    authority = uri.index("//") + 2
    slash = uri.find("/", authority)
    return (uri, "") if slash < 0 else (uri[:slash], uri[slash:])


def _labelled(name: str, label: str) -> str:
    """dump.tar.gz -> dump_1.tar.gz; what follows a first dot inside the name is its ending."""
    dot = name.find(".", 1)
    return f"{name}_{label}" if dot < 0 else f"{name[:dot]}_{label}{name[dot:]}"
