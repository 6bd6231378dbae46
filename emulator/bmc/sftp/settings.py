# SPDX-License-Identifier: Apache-2.0
"""The `sftp` section of a scenario."""

from __future__ import annotations

from dataclasses import dataclass, field, replace
from typing import Any, Mapping, Sequence

from bmc.scenario import Checker, MemberPath, kind
from bmc.sftp.script import SftpAnswer, read_answers

FFDC, KEM_DUMP = "/download/ffdc/", "/download/ffdc/kem_dump/"
CREDENTIAL, BMC = "credential", "bmc"
DEFAULT_FILES = {
    FFDC: ("ffdc_{serial}_{time}.tgz", "ffdc_{serial}_{time}.tzz", "ffdc_{serial}_{time}.log"),
    KEM_DUMP: ("kem_{serial}_{time}.tgz", "processor1_{serial}.tzz", "processor2_{serial}.tzz",
               "kem_{serial}_{time}.log"),
}
NUMBER = b"{n}"

_MEMBERS = ("accounts", "files", "silent", "answers")
_FILE_MEMBERS = ("name", "size", "text", "folder", "count", "damaged")
_LARGEST_FILE = 4 * 1024**3 - 1  # what an archive can have
_MOST_FILES = 1_000_000

Account = tuple[str, str]


@dataclass(frozen=True)
class FileSettings:
    """One entry of a folder. Without size and text it is as large as its plausible content."""

    name: bytes
    size: int | None = None
    text: bytes | None = None
    is_folder: bool = False
    is_damaged: bool = False  # only for archives: its middle is spoilt


@dataclass(frozen=True)
class SftpSettings:
    """What the file service is to be."""

    accounts: Sequence[str | Account] = (CREDENTIAL, BMC)
    # By folder; None: there is no such folder. One that is not named has its plausible files.
    files: Mapping[str, Sequence[FileSettings] | None] = field(default_factory=dict)
    silent: bool = False
    answers: Mapping[str, Sequence[SftpAnswer]] = field(default_factory=dict)


def read_sftp(check: Checker, value: Any) -> SftpSettings:
    """Reads and checks the section."""
    place = ("sftp",)
    entry = check.mapping(value, place, _MEMBERS)
    return SftpSettings(
        accounts=_read_accounts(check, entry, place + ("accounts",)),
        files=_read_folders(check, entry.get("files"), place + ("files",)),
        silent=check.flag(entry.get("silent", False), place + ("silent",)),
        answers=read_answers(check, entry.get("answers"), place + ("answers",)),
    )


def _read_accounts(
    check: Checker, entry: Mapping[str, Any], place: MemberPath
) -> Sequence[str | Account]:
    accounts = check.sequence(entry.get("accounts", [CREDENTIAL, BMC]), place)
    return tuple(_read_account(check, account, place + (n,)) for n, account in enumerate(accounts))


def _read_account(check: Checker, value: Any, place: MemberPath) -> str | Account:
    if isinstance(value, str):
        return check.choice(value, place, (CREDENTIAL, BMC))
    account = check.mapping(value, place, ("user", "password"))
    user, password = (
        check.text(account.get(name, ""), place + (name,)) for name in ("user", "password")
    )
    return user, password


def _read_folders(
    check: Checker, value: Any, place: MemberPath
) -> dict[str, Sequence[FileSettings] | None]:
    folders: dict[str, Sequence[FileSettings] | None] = {}
    for folder, entries in check.mapping(value, place).items():
        here = place + (folder,)
        if not folder.startswith("/") or not folder.endswith("/"):
            check.fail(here, 'must read "/folder/", with a slash at both ends')
        folders[folder] = None if entries is None else _read_files(check, entries, here)
    return folders


def _read_files(check: Checker, value: Any, place: MemberPath) -> Sequence[FileSettings]:
    files: list[FileSettings] = []
    for number, entry in enumerate(check.sequence(value, place)):
        files += _read_file(check, entry, place + (number,))
    return files


def _read_file(check: Checker, value: Any, place: MemberPath) -> Sequence[FileSettings]:
    if not isinstance(value, dict):
        return [FileSettings(_read_name(check, value, place))]
    entry = check.mapping(value, place, _FILE_MEMBERS)
    if "name" not in entry:
        check.fail(place, "name is missing")
    name = _read_name(check, entry["name"], place + ("name",))
    contents = [member for member in ("size", "text", "folder") if member in entry]
    if len(contents) > 1:
        check.fail(place + (contents[1],), f"there is {contents[0]} already")
    file = FileSettings(
        name,
        size=_optional(check.whole, entry, place, "size", low=0, high=_LARGEST_FILE),
        text=_read_text(check, entry, place),
        is_folder=check.flag(entry.get("folder", False), place + ("folder",)),
        is_damaged=check.flag(entry.get("damaged", False), place + ("damaged",)),
    )
    return _numbered(check, file, entry, place)


def _numbered(
    check: Checker, file: FileSettings, entry: Mapping[str, Any], place: MemberPath
) -> Sequence[FileSettings]:
    """With a count, so many files, whose names differ by a number."""
    if "count" not in entry:
        return [file]
    count = check.whole(entry["count"], place + ("count",), 0, _MOST_FILES)
    if NUMBER not in file.name:
        check.fail(place + ("name",), "must hold {n}, the place of the number, where there is a count")
    return [
        replace(file, name=file.name.replace(NUMBER, b"%05d" % n))
        for n in range(1, count + 1)
    ]


def _read_name(check: Checker, value: Any, place: MemberPath) -> bytes:
    if isinstance(value, bytes):  # YAML's !!binary: names that are no UTF-8
        return value
    if not isinstance(value, str):
        check.fail(place, f"must be a file's name, not {kind(value)}")
    return value.encode()


def _read_text(check: Checker, entry: Mapping[str, Any], place: MemberPath) -> bytes | None:
    text = _optional(check.text, entry, place, "text")
    return None if text is None else text.encode()


def _optional(reader: Any, entry: Mapping[str, Any], place: MemberPath, name: str, **more: int) -> Any:
    return reader(entry[name], place + (name,), **more) if name in entry else None
