# SPDX-License-Identifier: Apache-2.0
"""Exports to a target: the BMC uploads with curl, and its credentials never show."""

from __future__ import annotations

import asyncio
import base64
import http.server
import socket
import sys
import threading
import warnings
from pathlib import Path
from typing import Any, Iterator

import pytest

warnings.filterwarnings("ignore", module="asyncssh")
with warnings.catch_warnings():
    warnings.simplefilter("ignore")
    import asyncssh

import stores
from conftest import EMULATOR, EXPORT, FULL_EXPORT, MINI_EXPORT, TASKS, Bmc, Starter

sys.path.insert(0, str(EMULATOR))
from bmc.certificate import make_certificate  # noqa: E402
from bmc.upload import configuration, usable_uri  # noqa: E402

USER = "collector"
PASSWORD = 'p"a\\ss w:örd $HOME #'


class SftpStore:
    """An SFTP file store with one account, in a thread of its own."""

    def __init__(self, folder: Path) -> None:
        self.folder = folder
        self._loop = asyncio.new_event_loop()
        self._thread = threading.Thread(target=self._loop.run_forever, daemon=True)
        self._thread.start()
        self.port = self._run(self._start())

    def _run(self, work: Any) -> Any:
        return asyncio.run_coroutine_threadsafe(work, self._loop).result(timeout=20)

    async def _start(self) -> int:
        class Account(asyncssh.SSHServer):
            def password_auth_supported(self) -> bool:
                return True

            def validate_password(self, username: str, password: str) -> bool:
                return (username, password) == (USER, PASSWORD)

        def files(channel: Any) -> asyncssh.SFTPServer:
            return asyncssh.SFTPServer(channel, chroot=str(self.folder))

        key = asyncssh.generate_private_key("ssh-ed25519")
        self._server = await asyncssh.create_server(
            Account, "127.0.0.1", 0, server_host_keys=[key], sftp_factory=files
        )
        return self._server.sockets[0].getsockname()[1]

    def stop(self) -> None:
        async def close() -> None:
            self._server.close()
            await self._server.wait_closed()

        self._run(close())
        self._loop.call_soon_threadsafe(self._loop.stop)
        self._thread.join(timeout=10)


@pytest.fixture
def store(tmp_path: Path) -> Iterator[SftpStore]:
    folder = tmp_path / "store"
    folder.mkdir()
    made = SftpStore(folder)
    yield made
    made.stop()


def export(bmc: Bmc, uri: str, user: str = USER, password: str = PASSWORD, body: dict = FULL_EXPORT) -> dict:
    """Exports to `uri` and returns the task at its end."""
    accepted = bmc.post(EXPORT, {**body, "Username": user, "Password": password, "ExportURI": uri})
    assert accepted.status == 202
    return bmc.poll_to_end(TASKS + accepted.json()["Id"]).json()


def test_an_sftp_target_receives_the_archive(start: Starter, store: SftpStore) -> None:
    bmc = start()
    task = export(bmc, f"sftp://127.0.0.1:{store.port}/target.tar.gz")

    assert task["TaskState"] == "Completed", task["Messages"]
    assert "FFDCForDownloading" not in task["Oem"]["Tavrin"]
    assert (store.folder / "target.tar.gz").read_bytes() == Path(bmc.archive["file"]).read_bytes()


def test_a_target_folder_receives_it_under_its_own_name(start: Starter, store: SftpStore) -> None:
    (store.folder / "in").mkdir()
    bmc = start()
    task = export(bmc, f"sftp://127.0.0.1:{store.port}/in/", body=MINI_EXPORT)

    assert task["TaskState"] == "Completed", task["Messages"]
    mini = bmc.ready["archives"]["mini"]
    assert (store.folder / "in" / mini["name"]).read_bytes() == Path(mini["file"]).read_bytes()


def test_a_refused_login_is_told_as_the_tasks_reason(start: Starter, store: SftpStore) -> None:
    uri = f"sftp://127.0.0.1:{store.port}"
    task = export(start(), uri + "/x", password="wrong")

    assert (task["TaskState"], task["TaskStatus"]) == ("Exception", "Critical")
    started, reason = task["Messages"]
    assert started["MessageId"] == "TaskEvent.1.0.TaskStarted"
    assert reason["MessageId"] == "TavrinMessages.1.0.ExportLoginRefused"
    assert reason["Message"] == f"The file store {uri} refused the login of user {USER}."
    assert reason["MessageArgs"] == [uri, USER]
    assert (reason["Severity"], reason["MessageSeverity"]) == ("Critical", "Critical")
    assert reason["Resolution"].startswith("Correct the user or the password")
    assert "wrong" not in str(task)
    assert "FFDCForDownloading" not in task["Oem"]["Tavrin"]


def reason_of(task: dict) -> str:
    assert task["TaskState"] == "Exception"
    return task["Messages"][-1]["MessageId"].rpartition(".")[2]


def test_a_folder_that_is_not_there_is_told(start: Starter, store: SftpStore) -> None:
    task = export(start(), f"sftp://127.0.0.1:{store.port}/no/such/folder/x")

    assert reason_of(task) in ("ExportDenied", "ExportFailed")  # as the store's answer was
    assert "FFDCForDownloading" not in task["Oem"]["Tavrin"]


def test_a_target_that_refuses_ends_in_an_exception(start: Starter) -> None:
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        port = probe.getsockname()[1]

        assert reason_of(export(start(), f"sftp://127.0.0.1:{port}/x")) == "ExportUnreachable"


def test_a_host_that_is_not_known_is_told(start: Starter) -> None:
    assert reason_of(export(start(), "sftp://no-such-host.invalid/x")) == "ExportHostUnknown"


def test_a_task_runs_until_its_upload_has_ended(start: Starter) -> None:
    with socket.socket() as silent:
        silent.bind(("127.0.0.1", 0))
        silent.listen(1)
        bmc = start({"redfish": {"task_states": ["New", "Completed"]}})
        uri = f"sftp://127.0.0.1:{silent.getsockname()[1]}/x"
        body = {**FULL_EXPORT, "Username": USER, "Password": PASSWORD, "ExportURI": uri}
        path = TASKS + bmc.post(EXPORT, body).json()["Id"]
        silent.settimeout(10)
        accepted, _ = silent.accept()

        assert [bmc.get(path).json()["TaskState"] for _ in range(4)] == ["New"] + ["Running"] * 3
        assert_curl_shows_nothing(bmc)
        accepted.close()
    assert bmc.poll_to_end(path).json()["TaskState"] == "Exception"


def assert_curl_shows_nothing(bmc: Bmc) -> None:
    """Neither arguments nor environment of the running curl hold target or credentials."""
    children = Path(f"/proc/{bmc.process.pid}/task/{bmc.process.pid}/children").read_text().split()
    assert len(children) == 1
    assert Path(f"/proc/{children[0]}/cmdline").read_bytes() == b"curl\0--disable\0--config\0-\0"
    environment = Path(f"/proc/{children[0]}/environ").read_bytes()
    assert USER.encode() not in environment and PASSWORD.encode() not in environment


def test_a_task_that_is_to_be_killed_uploads_nothing(start: Starter, store: SftpStore) -> None:
    bmc = start({"redfish": {"task_states": ["Running", "Killed"]}})

    assert export(bmc, f"sftp://127.0.0.1:{store.port}/x")["TaskState"] == "Killed"
    assert list(store.folder.iterdir()) == []


def test_an_https_target_receives_the_archive(start: Starter, tmp_path: Path) -> None:
    received: dict[str, Any] = {}

    class Target(http.server.BaseHTTPRequestHandler):
        def do_PUT(self) -> None:
            length = int(self.headers["Content-Length"])
            if self.path == "/refused":
                self.rfile.read(length)
                self.send_error(401)
                return
            received.update(path=self.path, body=self.rfile.read(length), auth=self.headers["Authorization"])
            self.send_response(201)
            self.send_header("Content-Length", "0")
            self.end_headers()

        def log_message(self, *_: Any) -> None:
            pass

    server = http.server.HTTPServer(("127.0.0.1", 0), Target)
    server.socket = make_certificate(tmp_path, "target", "127.0.0.1").server_context().wrap_socket(
        server.socket, server_side=True
    )
    threading.Thread(target=server.serve_forever, daemon=True).start()
    bmc = start()
    password = PASSWORD + "\n\r\t\v" + 1000 * "x"
    task = export(bmc, f"https://127.0.0.1:{server.server_port}/in/", password=password)
    refused = export(bmc, f"https://127.0.0.1:{server.server_port}/refused", password="wrong")
    server.shutdown()
    server.server_close()

    assert reason_of(refused) == "ExportLoginRefused"
    assert task["TaskState"] == "Completed", task["Messages"]
    assert received["path"] == "/in/" + bmc.archive["name"]
    assert received["body"] == Path(bmc.archive["file"]).read_bytes()
    assert received["auth"] == "Basic " + base64.b64encode(f"{USER}:{password}".encode()).decode()


def test_a_tftp_target_receives_the_archive(start: Starter, tmp_path: Path) -> None:
    folder = tmp_path / "tftp"
    folder.mkdir()
    with stores.atftpd(folder, tmp_path / "log") as port:
        bmc = start()
        task = export(bmc, f"tftp://127.0.0.1:{port}/in.tar.gz", user="", password="")

    assert task["TaskState"] == "Completed", task["Messages"]
    assert (folder / "in.tar.gz").read_bytes() == Path(bmc.archive["file"]).read_bytes()


@pytest.mark.parametrize("uri, usable", [
    ("sftp://host/x", True), ("SFTP://host", True), ("tftp://[::1]:69/x", True), ("https://h/x", True),
    ("http://h/x", False), ("file:///etc/x", False), ("sftp://", False), ("host/x", False),
    ("sftp://host:99999/x", False), ("sftp://host/\nupload-file = /etc/shadow", False), ("sftp://[::1/x", False),
])
def test_only_targets_that_the_bmc_can_reach_are_usable(uri: str, usable: bool) -> None:
    assert usable_uri(uri) is usable


def test_a_line_break_in_a_password_is_no_new_option() -> None:
    text = configuration(Path("/a/b"), "sftp://h/", "u", 'p"\nurl = "file:///etc/shadow')

    assert [line for line in text.splitlines() if line.startswith("url")] == ['url = "sftp://h/"']
    assert text.splitlines()[-1] == 'user = "u:p\\"\\nurl = \\"file:///etc/shadow"'
