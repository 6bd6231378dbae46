# SPDX-License-Identifier: Apache-2.0
"""Strangers' clients: curl, redfishtool, and curl through an HTTP/2-capable front."""

from __future__ import annotations

import json
import shutil
import subprocess
import tarfile
from pathlib import Path
from typing import Any, Iterator

import pytest

from conftest import (
    EXPORT, FRONT, FULL_EXPORT, ROOT, SESSIONS, TASKS, Bmc, Starter, clean_environment, curl, first_line, peer,
)


def test_curl_walks_from_login_to_the_unpacked_archive(start: Starter, tmp_path: Path) -> None:
    run_with_curl(start(), None, tmp_path)


def test_curl_walks_over_ipv6(start: Starter, tmp_path: Path) -> None:
    run_with_curl(start(None, "--bind", "::1"), None, tmp_path)


def test_curl_waits_for_a_continue_that_comes(start: Starter, tmp_path: Path) -> None:
    bmc = start()
    done = curl("--globoff", "--user", f"{bmc.user}:{bmc.password}", "--header", "Expect: 100-continue",
                "--expect100-timeout", "20", "--max-time", "10", "--data", json.dumps(FULL_EXPORT),
                "--write-out", "%{http_code}", "--output", "/dev/null", bmc.url + EXPORT)

    assert (done.returncode, done.stdout) == (0, b"202")


def test_curl_trusts_the_certificate_of_the_ready_line(start: Starter) -> None:
    bmc = start()
    done = subprocess.run(
        ["curl", "--disable", "--silent", "--cacert", bmc.ready["redfish"]["certificate"], bmc.url + ROOT],
        capture_output=True, timeout=20, env=clean_environment(),
    )

    assert done.returncode == 0 and json.loads(done.stdout)["RedfishVersion"] == "1.15.0"


def run_with_curl(bmc: Bmc, url: str | None, folder: Path, *options: str) -> None:
    """Login, export, polls, download, all by curl."""
    base = ["--globoff", *options]
    url = url or bmc.url
    head = folder / "head"
    login = curl(*base, "--dump-header", str(head), "--data",
                 json.dumps({"UserName": bmc.user, "Password": bmc.password}), url + SESSIONS)
    assert login.returncode == 0, login.stderr
    lines = [line.partition(": ") for line in head.read_text().splitlines()]
    token = next(value for name, _, value in lines if name.lower() == "x-auth-token")
    base += ["--header", "X-Auth-Token: " + token]
    task = json.loads(curl(*base, "--data", json.dumps(FULL_EXPORT), url + EXPORT).stdout)
    path = None
    for _ in range(10):
        state = json.loads(curl(*base, url + TASKS + task["Id"]).stdout)
        if state["TaskState"] == "Completed":
            path = state["Oem"]["Tavrin"]["FFDCForDownloading"]["Path"]
            break
    assert path
    file = folder / "archive.tar.gz"
    done = curl(*base, "--fail", "--output", str(file), url + path)
    assert done.returncode == 0, done.stderr
    with tarfile.open(file, "r:gz") as archive:
        assert "ffdc/manifest.json" in archive.getnames()


# --- redfishtool ------------------------------------------------------------------------------


def redfishtool(bmc: Bmc, *arguments: str, password: str | None = None, auth: str = "Basic") -> Any:
    """One call of redfishtool; returns what it printed as JSON."""
    assert shutil.which("redfishtool"), "redfishtool is not installed"
    done = subprocess.run(
        ["/usr/bin/redfishtool", "-r", f"{bmc.address}:{bmc.port}", "-u", bmc.user,
         "-p", password or bmc.password, "-A", auth, "-S", "Always", *arguments],
        capture_output=True, text=True, timeout=60, env=clean_environment(),
    )
    assert done.returncode == 0, done.stdout + done.stderr
    return json.loads(done.stdout)


@pytest.mark.parametrize("auth", ["Basic", "Session"])
def test_redfishtool_lists_everything(bmc: Bmc, auth: str) -> None:
    assert redfishtool(bmc, "versions") == {"v1": "/redfish/v1/"}
    assert redfishtool(bmc, "root", auth=auth)["RedfishVersion"] == "1.15.0"
    assert redfishtool(bmc, "Systems", "list", auth=auth)["Members@odata.count"] == 1
    assert redfishtool(bmc, "Systems", "-1", "get", auth=auth)["SystemType"] == "Physical"
    assert redfishtool(bmc, "Systems", "-1", "Processors", auth=auth)["Members@odata.count"] == 2
    assert redfishtool(bmc, "Chassis", "-1", "Thermal", auth=auth)["Temperatures"]
    assert redfishtool(bmc, "Chassis", "-1", "Power", auth=auth)["PowerControl"]
    assert redfishtool(bmc, "Managers", "-1", "get", auth=auth)["ManagerType"] == "BMC"
    assert redfishtool(bmc, "Managers", "-1", "NetworkProtocol", auth=auth)["HTTPS"]["Port"] == 443
    assert redfishtool(bmc, "SessionService", auth=auth)["ServiceEnabled"] is True
    assert redfishtool(bmc, "AccountService", "Accounts", "-i", "1", auth=auth)["UserName"] == "admin"


def test_redfishtool_logs_in_and_out(bmc: Bmc) -> None:
    session = redfishtool(bmc, "SessionService", "login")
    listed = redfishtool(bmc, "SessionService", "Sessions")["Members"]

    assert session["SessionLocation"].endswith({link["@odata.id"] for link in listed}.pop())
    assert bmc.get(ROOT + "Systems", anonymous=True,
                   headers={"X-Auth-Token": session["X-Auth-Token"]}).status == 200


def test_redfishtool_exports_and_follows_the_task(start: Starter) -> None:
    bmc = start({"redfish": {"task_states": ["Running", "Completed"]}})
    task = redfishtool(bmc, "raw", "POST", EXPORT, "-d", json.dumps(FULL_EXPORT))

    assert task["TaskState"] == "Completed"  # it followed the monitor to the end by itself
    assert [(r["method"], r["path"]) for r in bmc.requests()] == [
        ("POST", EXPORT), ("GET", TASKS + "1/Monitor"), ("GET", TASKS + "1/Monitor")
    ]


def test_redfishtool_is_told_of_a_wrong_password(bmc: Bmc) -> None:
    with pytest.raises(AssertionError, match="401"):
        redfishtool(bmc, "Systems", "list", password="wrong")


# --- the front --------------------------------------------------------------------------------


@pytest.fixture
def front(start: Starter) -> Iterator[tuple[Bmc, dict]]:
    peer("usr/sbin/nghttpx")
    bmc = start()
    process = subprocess.Popen(
        [str(FRONT), bmc.address, str(bmc.port)],
        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=clean_environment(),
    )
    yield bmc, json.loads(first_line(process))
    process.stdin.close()
    assert process.wait(timeout=5) == 0


def test_curl_walks_through_the_front_with_http_2(front: tuple[Bmc, dict], tmp_path: Path) -> None:
    bmc, facts = front
    url = f"https://{facts['address']}:{facts['port']}"
    run_with_curl(bmc, url, tmp_path, "--http2")

    done = curl("--http2", "--write-out", "%{http_version}", "--output", "/dev/null", url + ROOT)
    assert done.stdout == b"2"


def test_curl_walks_through_the_front_with_http_1(front: tuple[Bmc, dict], tmp_path: Path) -> None:
    bmc, facts = front
    run_with_curl(bmc, f"https://{facts['address']}:{facts['port']}", tmp_path, "--http1.1")

    assert "\nX-Auth-Token: " in (tmp_path / "head").read_text()


def test_the_front_has_a_certificate_of_its_own(front: tuple[Bmc, dict]) -> None:
    bmc, facts = front
    url = f"https://{facts['address']}:{facts['port']}{ROOT}"

    assert facts["sha256"] != bmc.ready["redfish"]["sha256"]
    done = subprocess.run(["curl", "--disable", "--silent", "--cacert", facts["certificate"], url],
                          capture_output=True, timeout=20, env=clean_environment())
    assert done.returncode == 0


def test_the_front_without_its_program_says_so(tmp_path: Path) -> None:
    done = subprocess.run([str(FRONT), "127.0.0.1", "1"], stdin=subprocess.PIPE, capture_output=True, text=True,
                          timeout=20, env={**clean_environment(), "VARNEX_PEERS": str(tmp_path)})

    assert (done.returncode, done.stdout) == (77, "")
    assert done.stderr == "http2-front: no nghttpx: set VARNEX_PEERS\n"
