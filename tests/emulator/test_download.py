# SPDX-License-Identifier: Apache-2.0
"""Archives in parts (RFC 9110), archives that change meanwhile, and archives that do not unpack."""

from __future__ import annotations

import hashlib
import http.client
import ssl
import sys
import tarfile
import zlib
from pathlib import Path

import pytest

from conftest import EMULATOR, Answer, Bmc, Starter, curl

sys.path.insert(0, str(EMULATOR))
from bmc.http.ranges import NotSatisfiable, still_valid, wanted_part  # noqa: E402


def ask(bmc: Bmc, method: str = "GET", **headers: str) -> Answer:
    names = {name.replace("_", "-"): value for name, value in headers.items()}
    return bmc.ask(method, bmc.archive["path"], headers=names)


def content(bmc: Bmc) -> bytes:
    return Path(bmc.archive["file"]).read_bytes()


@pytest.fixture(scope="module")
def offering(tmp_path_factory: pytest.TempPathFactory):
    """A BMC that hands out parts."""
    starter = Starter(tmp_path_factory.mktemp("bmc"))
    yield starter({"redfish": {"download": {"ranges": True}, "archive": {"size": 500000}}})
    starter.stop_all()


@pytest.mark.parametrize("header, part", [
    ("bytes=0-", (0, 1000)), ("bytes=999-", (999, 1000)), ("bytes=10-19", (10, 20)), ("bytes=10-5000", (10, 1000)),
    ("bytes=-100", (900, 1000)), ("bytes=-5000", (0, 1000)), ("BYTES=5-", (5, 1000)),
    (None, None), ("bytes=-", None), ("bytes=20-10", None), ("bytes=1-2,5-6", None), ("lines=1-2", None),
])
def test_parts_are_read_as_the_standard_says(header: str | None, part: tuple[int, int] | None) -> None:
    assert wanted_part(header, 1000) == part


@pytest.mark.parametrize("header", ["bytes=1000-", "bytes=2000-3000", "bytes=-0"])
def test_parts_behind_the_end_are_none(header: str) -> None:
    with pytest.raises(NotSatisfiable):
        wanted_part(header, 1000)


@pytest.mark.parametrize("named, valid", [
    (None, True), ('"tag"', True), ('"other"', False), ('W/"tag"', False),
    ("Fri, 01 Mar 2024 12:00:00 GMT", True), ("Fri, 01 Mar 2024 12:00:01 GMT", False),
])
def test_a_validator_names_what_is_there_or_not(named: str | None, valid: bool) -> None:
    assert still_valid(named, '"tag"', "Fri, 01 Mar 2024 12:00:00 GMT") is valid


def test_a_part_comes_with_its_place(offering: Bmc) -> None:
    whole = ask(offering)
    part = ask(offering, Range="bytes=400000-", If_Range=whole.headers["ETag"])

    assert (whole.status, whole.headers["Accept-Ranges"]) == (200, "bytes")
    assert (part.status, part.headers["Content-Range"]) == (206, "bytes 400000-499999/500000")
    assert part.body == content(offering)[400000:]
    assert (part.headers["ETag"], part.headers["Last-Modified"]) == (
        whole.headers["ETag"], whole.headers["Last-Modified"])


def test_a_part_can_end_before_the_end(offering: Bmc) -> None:
    answer = ask(offering, Range="bytes=10-19")

    assert (answer.status, answer.headers["Content-Range"]) == (206, "bytes 10-19/500000")
    assert answer.body == content(offering)[10:20]


def test_the_time_is_a_validator_too(offering: Bmc) -> None:
    time = ask(offering, "HEAD").headers["Last-Modified"]

    assert ask(offering, Range="bytes=1-", If_Range=time).status == 206
    assert ask(offering, Range="bytes=1-", If_Range="Fri, 01 Mar 1996 12:00:00 GMT").status == 200


def test_a_part_that_is_not_there_is_416(offering: Bmc) -> None:
    answer = ask(offering, Range="bytes=500000-")

    assert (answer.status, answer.headers["Content-Range"], answer.body) == (416, "bytes */500000", b"")


def test_a_head_is_never_a_part(offering: Bmc) -> None:
    answer = ask(offering, "HEAD", Range="bytes=1-")

    assert (answer.status, answer.headers["Content-Length"]) == (200, "500000")


def test_without_the_offer_the_whole_archive_comes(bmc: Bmc) -> None:
    answer = ask(bmc, Range="bytes=5-")

    assert (answer.status, answer.headers["Accept-Ranges"]) == (200, "none")
    assert answer.body == content(bmc)


@pytest.mark.parametrize("settings, etag, time", [
    ({"etag": "weak"}, 'W/"', True), ({"etag": "none"}, None, True),
    ({"etag": "none", "last_modified": False}, None, False),
])
def test_validators_can_be_weak_or_missing(start: Starter, settings: dict, etag: str | None, time: bool) -> None:
    bmc = start({"redfish": {"download": {"ranges": True, **settings}}})
    headers = ask(bmc).headers

    assert headers.get("ETag", "").startswith(etag or "") and ("ETag" in headers) == (etag is not None)
    assert ("Last-Modified" in headers) == time
    if etag:
        assert ask(bmc, Range="bytes=5-", If_Range=headers["ETag"]).status == 200  # too weak for parts


def test_another_archive_can_take_the_place_of_the_first(start: Starter) -> None:
    bmc = start({"redfish": {"download": {"ranges": True, "replaced_after": 1}, "archive": {"size": 100000}}})
    first = ask(bmc)
    went_on = ask(bmc, Range="bytes=50000-", If_Range=first.headers["ETag"])
    later = bmc.ready["later_archives"]["full"]

    assert hashlib.sha256(first.body).hexdigest() == bmc.archive["sha256"]
    assert went_on.status == 200 and went_on.headers["ETag"] != first.headers["ETag"]
    assert hashlib.sha256(went_on.body).hexdigest() == later["sha256"] != bmc.archive["sha256"]
    assert later["size"] == bmc.archive["size"]
    assert first.body[50000:] != went_on.body[50000:]


def test_a_bmc_can_ignore_the_validator(start: Starter) -> None:
    bmc = start({"redfish": {"download": {"ranges": True, "heed_if_range": False}}})

    assert ask(bmc, Range="bytes=5-", If_Range='"another"').status == 206


def test_curl_goes_on_after_a_cut(start: Starter, tmp_path: Path) -> None:
    """The first download is cut, the second brings the rest."""
    bmc = start({"redfish": {
        "archive": {"size": 3 << 20}, "download": {"ranges": True},
        "answers": {"GET /download/*": [{"cut_after": 1 << 20}]},
    }})
    file = tmp_path / "archive"
    arguments = ["--user", f"{bmc.user}:{bmc.password}", "--output", str(file), bmc.url + bmc.archive["path"]]

    assert curl(*arguments).returncode != 0
    assert file.stat().st_size == 1 << 20
    done = curl("--continue-at", "-", *arguments)
    assert done.returncode == 0, done.stderr
    assert file.read_bytes() == content(bmc)
    assert [r["headers"].get("Range") for r in bmc.requests()] == [None, f"bytes={1 << 20}-"]


def test_the_continuation_can_be_cut_as_well(start: Starter) -> None:
    bmc = start({"redfish": {
        "archive": {"size": 200000}, "download": {"ranges": True},
        "answers": {"GET /download/*": [{"cut_after": 100000}, {"cut_after": 10}]},
    }})
    for headers, size in (({}, 100000), ({"Range": "bytes=100000-"}, 10)):
        connection = bmc.connect()
        connection.request("GET", bmc.archive["path"], headers={**bmc.basic(), **headers})
        answer = connection.getresponse()
        assert len(answer.read(size)) == size
        with pytest.raises((http.client.IncompleteRead, ssl.SSLError, ConnectionError)):
            if not answer.read(1):
                raise http.client.IncompleteRead(b"")
        connection.close()


@pytest.mark.parametrize("size", [None, 20000, 300000, 5 << 20])
def test_a_damaged_archive_does_not_unpack(start: Starter, tmp_path: Path, size: int | None) -> None:
    sound = start({"redfish": {"archive": {"size": size, "seed": 1}}})
    bmc = start({"redfish": {"archive": {"size": size, "seed": 1, "damaged": True}}})
    data = ask(bmc).body

    assert len(data) == bmc.archive["size"] == sound.archive["size"]
    assert hashlib.sha256(data).hexdigest() == bmc.archive["sha256"] != sound.archive["sha256"]
    file = tmp_path / "damaged.tar.gz"
    file.write_bytes(data)
    with pytest.raises((tarfile.TarError, zlib.error, OSError, EOFError)):
        with tarfile.open(file, "r:gz") as archive:
            for member in archive:
                if member.isfile():
                    archive.extractfile(member).read()


def test_a_page_can_stand_where_the_archive_should(start: Starter) -> None:
    bmc = start(EMULATOR / "scenarios" / "html-archive.yaml")
    answer = ask(bmc)

    assert (answer.status, answer.headers["Content-Type"]) == (200, "text/html")
    assert answer.body.startswith(b"<!DOCTYPE html>")
