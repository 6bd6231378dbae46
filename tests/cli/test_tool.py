# SPDX-License-Identifier: Apache-2.0
"""The tool as a user runs it: results, terminals, passwords, addresses, exports."""

import asyncio
import contextlib
import hashlib
import json
import os
import pathlib
import re
import stat
import subprocess
import threading

import asyncssh
import pytest

import tool
from tool import EXPORT, SERVICE_ROOT

PROXIES = ("http_proxy", "https_proxy", "HTTPS_PROXY", "ALL_PROXY")


needs_ipv6 = pytest.mark.skipif(not tool.has_ipv6(), reason="no IPv6 on this machine")


def sha256_of(path):
    return hashlib.sha256(pathlib.Path(path).read_bytes()).hexdigest()


# --- the main job -----------------------------------------------------------------------------


def test_collect_says_where_the_archive_is_with_size_and_digest(bmc, tmp_path):
    ended = tool.run(tool.collect(bmc, tmp_path), password=bmc.password)
    assert ended.code == 0, ended.err
    (name,) = tool.archives_in(tmp_path)
    path = tmp_path / name
    archive = bmc.ready["archive"]
    assert re.fullmatch(
        rf"127\.0\.0\.1_\d{{8}}T\d{{6}}Z_{re.escape(archive['name'])}", name)
    assert ended.out == (
        f"Archive: {path}\nSize:    {archive['size']} bytes ({archive['size'] / 1024:.1f} KiB)\n"
        f"SHA-256: {archive['sha256']}\n")
    assert sha256_of(path) == archive["sha256"]
    assert stat.S_IMODE(path.stat().st_mode) == 0o600


def test_progress_off_a_terminal_is_plain_lines_on_standard_error(bmc, tmp_path):
    ended = tool.run(tool.collect(bmc, tmp_path), password=bmc.password)
    lines = [re.sub(r"^\d+:\d\d  ", "", line) for line in ended.err.splitlines()]
    assert re.fullmatch(r"The certificate of .* is new, is accepted and remembered in .*", lines.pop(1))
    gathering = [line for line in lines if line.startswith("gather: ")]
    assert [line for line in lines if line not in gathering] == [
        "preflight", "start", "connect", "export", "gather", "download", "verify"]
    # What is between depends on who of the two that ask for the task comes first.
    assert (gathering[0], gathering[-1]) == ("gather: task New", "gather: task Completed")
    assert all(re.match(r"gather: task (New|Starting|Running)(, \d+ %.*)?$", line) for line in gathering[:-1])
    assert "\x1b" not in ended.err and "\r" not in ended.err


@pytest.mark.parametrize("version", ["1.5.0", "1.15.0"])
@pytest.mark.parametrize("kind", ["mini", "full"])
@pytest.mark.parametrize("address", ["127.0.0.1", pytest.param("::1", marks=needs_ipv6)])
def test_collect_over_every_address_family_version_and_kind(start_bmc, tmp_path, address, kind, version):
    bmc = start_bmc({"redfish": {"version": version}}, "--bind", address)
    ended = tool.run(tool.collect(bmc, tmp_path, "--log", kind, "--json"), password=bmc.password)
    assert ended.code == 0, ended.err
    account, archive = ended.json, bmc.ready["archives"][kind]
    assert (account["size"], account["sha256"]) == (archive["size"], archive["sha256"])
    assert sha256_of(account["path"]) == archive["sha256"]
    folder = "/redfish/v1/TaskService/Tasks/1" if version == "1.15.0" else "/redfish/v1/Tasks/Tasks/1"
    assert any(request["path"] == folder for request in bmc.requests("GET"))
    (export,) = [r for r in bmc.requests("POST") if "ExportFFDCData" in r["path"]]
    wanted = "Mini-log" if kind == "mini" else "ProcessorDump"
    assert json.loads(export["body"]) == {"InitializationNeeded": True, "DataCollectionType": wanted}


@needs_ipv6
@pytest.mark.parametrize("host", ["[::1]", "::1%lo", "[::1%lo]", "localhost"])
def test_host_is_taken_in_every_spelling(start_bmc, tmp_path, host):
    bmc = start_bmc(None, "--bind", "127.0.0.1" if host == "localhost" else "::1")
    arguments = tool.collect(bmc, tmp_path)
    arguments[3] = host
    ended = tool.run(arguments, password=bmc.password)
    assert ended.code == 0, ended.err
    assert len(tool.archives_in(tmp_path)) == 1


def test_json_is_one_object_with_schema_steps_and_result(bmc, tmp_path):
    ended = tool.run(tool.collect(bmc, tmp_path, "--json"), password=bmc.password)
    assert ended.code == 0, ended.err
    assert ended.out.count("\n") == 1
    account = ended.json
    assert list(account) == [
        "schema", "version", "run", "command", "channel", "host", "address", "port", "user", "started",
        "ended", "outcome", "exit_code", "retryable", "reason", "attempts", "steps", "log_kind", "operation",
        "operation_reason", "task", "path", "remote_path", "size", "sha256", "damage", "export_uri", "bmc"]
    assert account["schema"] == 1
    assert (account["command"], account["channel"]) == ("collect", "redfish")
    assert (account["host"], account["port"]) == (bmc.address, bmc.port)
    assert (account["outcome"], account["exit_code"], account["reason"]) == ("downloaded", 0, None)
    assert [step["name"] for step in account["steps"]] == [
        "preflight", "start", "connect", "export", "gather", "download", "verify"]
    for step in account["steps"]:
        assert list(step) == ["name", "code", "seconds", "detail"]
        assert step["code"] == 0 and 0 <= step["seconds"] < 60
    assert account["path"] == str(tmp_path / tool.archives_in(tmp_path)[0])


def test_check_says_what_it_found_and_collects_nothing(bmc):
    ended = tool.run(tool.check(bmc), password=bmc.password)
    assert ended.code == 0, ended.err
    fingerprint = ":".join(re.findall("..", bmc.ready["redfish"]["sha256"].upper()))
    for line in (
        f"BMC:             127.0.0.1 port {bmc.port}, usable through redfish\n",
        "Service version: 1.15.0\n",
        f"Certificate:     SHA-256 {fingerprint}\n",
        "(self-signed)\n",
        "Note: The certificate is shown, not verified. Compare the SHA-256 with the BMC's own",
    ):
        assert line in ended.out
    assert re.search(r"Product:         \S.*\n", ended.out)
    assert re.search(r"  valid:         \d{4}-\d\d-\d\dT[\d:]+Z to \d{4}-\d\d-\d\dT[\d:]+Z\n", ended.out)
    assert bmc.requests("POST") == []


def test_check_looks_at_the_output_folder_too_and_leaves_nothing_there(bmc, tmp_path):
    fresh = tmp_path / "fresh"
    assert tool.run(tool.check(bmc, "--output", str(fresh)), password=bmc.password).code == 0
    assert not fresh.exists()

    for arguments, why in (
        (["--output", "/proc/fresh"], "The output folder /proc/fresh does not exist and cannot be made"),
        (["--output", str(tmp_path), "--keep-free", "100000G"], "and --keep-free asks for 97.7 TiB"),
    ):
        ended = tool.run(tool.check(bmc, *arguments), password=bmc.password)
        assert ended.code == 10
        assert why in ended.err
        assert "reached, but of no use through redfish\n" in ended.out


def test_check_as_json_holds_the_same(bmc):
    account = tool.run(tool.check(bmc, "--json"), password=bmc.password).json
    assert (account["outcome"], account["exit_code"]) == ("checked", 0)
    certificate = account["bmc"]["certificate"]
    assert certificate["sha256"].replace(":", "").lower() == bmc.ready["redfish"]["sha256"]
    assert certificate["verified"] is False and certificate["valid_now"] is True
    assert account["bmc"]["service_version"] == "1.15.0"
    assert account["path"] is None and account["size"] is None


def test_check_of_a_bmc_without_the_manager_ends_as_limited(start_bmc):
    bmc = start_bmc({"redfish": {"answers": {"GET /redfish/v1/Managers/1": [{"status": 404, "repeat": True}]}}})
    ended = tool.run(tool.check(bmc, "--operation", "oem"), password=bmc.password)
    assert ended.code == 10
    note = "The BMC has no /redfish/v1/Managers/1; it will refuse the export."
    assert f"kemffdc: {note} [exit code 10]\n" in ended.err
    assert f"127.0.0.1 port {bmc.port}, reached, but of no use through redfish\n" in ended.out
    assert f"Note: {note}\n" in ended.out
    account = tool.run(tool.check(bmc, "--operation", "oem", "--json"), password=bmc.password).json
    assert (account["outcome"], account["exit_code"], account["reason"]) == ("limited", 10, note)


def test_the_certificate_is_told_although_the_password_is_wrong(bmc):
    ended = tool.run(tool.check(bmc, "--json"), password="wrong")
    assert ended.code == 3
    assert ended.json["bmc"]["certificate"]["sha256"]
    assert len([r for r in bmc.requests() if "Authorization" in r["headers"]]) == 1, "accounts get locked"


def test_collect_through_the_http2_capable_front(bmc, tmp_path):
    front = subprocess.Popen(
        [str(tool.ROOT / "emulator" / "http2-front"), bmc.address, str(bmc.port)],
        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
        env={**tool.clean_environment(), "VARNEX_PEERS": os.environ.get("VARNEX_PEERS", "")})
    try:
        line = front.stdout.readline()
        if not line:
            assert front.wait(10) == 77, front.stderr.read()
            pytest.skip("no nghttpx: VARNEX_PEERS is not set")
        arguments = tool.collect(bmc, tmp_path, "--json")
        arguments[5] = str(json.loads(line)["port"])
        ended = tool.run(arguments, password=bmc.password)
    finally:
        front.communicate()
    assert ended.code == 0, ended.err
    assert ended.json["sha256"] == bmc.ready["archive"]["sha256"]


def test_a_second_archive_stands_beside_the_first(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"task_states": ["Completed"]}})
    for _ in range(3):
        assert tool.run(tool.collect(bmc, tmp_path), password=bmc.password).code == 0
    assert len(tool.archives_in(tmp_path)) == 3


def test_a_missing_output_folder_is_made(bmc, tmp_path):
    ended = tool.run(tool.collect(bmc, tmp_path / "new"), password=bmc.password)
    assert ended.code == 0, ended.err
    assert len(tool.archives_in(tmp_path / "new")) == 1


def test_a_failed_run_takes_the_folder_away_that_it_made(bmc, tmp_path):
    ended = tool.run(tool.collect(bmc, tmp_path / "new"), password="wrong")
    assert ended.code == 3
    assert tool.files_in(tmp_path) == []


def test_result_that_cannot_be_written_is_local_trouble(bmc, tmp_path):
    with open("/dev/full", "wb") as full:
        process = subprocess.run(
            [tool.TOOL, *tool.collect(bmc, tmp_path)], input=bmc.password.encode(), stdout=full,
            stderr=subprocess.PIPE, env=tool.clean_environment(), timeout=60 * tool.SLOWNESS, check=False)
    assert process.returncode == 8
    assert b"kemffdc: cannot write to standard output\n" in process.stderr


# --- usage ------------------------------------------------------------------------------------


def test_usage_errors_end_with_two_and_leave_standard_output_empty():
    for arguments in ([], ["collect"], ["collect", "--via", "redfish"], ["check", "--via", "x", "h"]):
        ended = tool.run(arguments)
        assert (ended.code, ended.out) == (2, "")
        assert ended.err.startswith("kemffdc: ")


def test_help_ends_with_zero():
    ended = tool.run(["--help"])
    assert ended.code == 0 and "Commands:" in ended.out and "Channels (--via):" in ended.out
    assert "Exit codes of kemffdc:" in tool.run(["help", "exit-codes"]).out


# --- passwords --------------------------------------------------------------------------------


def test_password_comes_from_a_file_and_its_last_line_end_does_not_count(bmc, tmp_path):
    file = tmp_path / "password"
    file.write_text(bmc.password + "\n")
    arguments = tool.check(bmc)
    arguments[arguments.index("-")] = str(file)
    assert tool.run(arguments).code == 0


def test_password_comes_from_the_environment_and_does_not_stay_there(start_bmc):
    bmc = start_bmc({"redfish": {"answers": {"GET */Managers/1": [{"delay": 3}]}}})
    arguments = [a for a in tool.check(bmc) if a not in ("--password-file", "-")]
    running = tool.Running(arguments, environment={"KEMFFDC_PASSWORD": bmc.password})
    bmc.wait_for("/redfish/v1/Managers/1")
    assert "KEMFFDC_PASSWORD=" in running.environ()
    assert bmc.password not in running.environ()
    assert running.end().code == 0


def test_without_a_password_and_without_a_terminal_nothing_is_asked(bmc):
    arguments = [a for a in tool.check(bmc) if a not in ("--password-file", "-")]
    ended = tool.run(arguments, seconds=5)
    assert ended.code == 2
    assert ended.err == (
        "kemffdc: No password: use --password-file FILE (- is standard input) or the environment "
        "variable KEMFFDC_PASSWORD. [exit code 2]\n")
    assert bmc.requests() == []


def prompted(bmc):
    return [a for a in tool.check(bmc) if a not in ("--password-file", "-")]


def test_password_is_asked_for_on_a_terminal_without_echo(bmc):
    terminal = tool.Terminal(prompted(bmc))
    terminal.read(r"Password of admin on 127\.0\.0\.1: $")
    terminal.type(bmc.password + "\n")
    assert terminal.end() == 0, terminal.text
    assert bmc.password not in terminal.text
    assert "Service version: 1.15.0" in terminal.text


def test_a_dash_on_a_terminal_asks_as_well(bmc):
    terminal = tool.Terminal(tool.check(bmc))
    terminal.read(r"Password of admin on 127\.0\.0\.1: $")
    terminal.type(bmc.password + "\n")
    assert terminal.end() == 0
    assert bmc.password not in terminal.text


def test_no_password_stands_anywhere_while_the_tool_runs(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"answers": {"GET */Tasks/1": [{"delay": 2}, {"repeat": True}]}}})
    log = tmp_path / "log"
    running = tool.Running(
        tool.collect(bmc, tmp_path / "out", "--log-file", str(log), "--json"), password=bmc.password)
    bmc.wait_for("/Tasks/1")
    seen = running._read("cmdline") + running.environ()
    ended = running.end()
    assert ended.code == 0, ended.err
    (token,) = bmc.tokens()
    for secret in (bmc.password, token):
        for text in (seen, ended.out, ended.err, log.read_text()):
            assert secret not in text
    assert "X-Auth-Token:**********" in log.read_text()


def test_a_password_that_the_bmc_sends_back_is_masked(start_bmc, tmp_path):
    echo = {"status": 400, "json": {"error": {"message": "user admin, word correct-horse, no"}}, "repeat": True}
    bmc = start_bmc({"password": "correct-horse", "redfish": {"answers": {EXPORT: [echo]}}})
    ended = tool.run(tool.collect(bmc, tmp_path, "--json"), password=bmc.password)
    assert ended.code == 4
    assert "correct-horse" not in ended.out + ended.err
    assert ended.json["reason"] == "The BMC refused the export (HTTP 400: user admin, word **********, no)."


# --- log --------------------------------------------------------------------------------------


def test_without_options_the_librarys_log_stays_away(bmc):
    ended = tool.run(tool.check(bmc), password="wrong")
    assert [line for line in ended.err.splitlines() if "src/" in line] == []


def test_log_level_shows_the_librarys_lines(bmc, tmp_path):
    ended = tool.run(tool.collect(bmc, tmp_path, "--log-level", "3"), password=bmc.password)
    assert ended.code == 0
    assert "src/module/kvs/ffdc/ffdcredfish_impl" in ended.err
    assert "is running, please wait... " in ended.err
    assert "Calling constructor" not in ended.err


def test_log_file_takes_everything_unless_told_otherwise(bmc, tmp_path):
    log = tmp_path / "log"
    ended = tool.run(tool.check(bmc, "--log-file", str(log)), password=bmc.password)
    assert ended.code == 0
    assert "src/" not in ended.err
    assert "Calling constructor of KEMFfdc for redfish channel" in log.read_text()
    assert stat.S_IMODE(log.stat().st_mode) == 0o600


# --- terminal ---------------------------------------------------------------------------------


def test_on_a_terminal_there_is_one_live_line(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {
        "archive": {"size": 3000000},
        "task_states": ["New", "Running", "Completed"],
        "answers": {SERVICE_ROOT: [{}, {"status": 503}, {}], "GET /download/*": [{"rate": 1500000}]}}})
    arguments = tool.collect(bmc, tmp_path, "--interval", "1")
    del arguments[arguments.index("--interval") : arguments.index("--interval") + 2]
    terminal = tool.Terminal(arguments)
    terminal.read("Password of admin")
    terminal.type(bmc.password + "\n")
    assert terminal.end() == 0, terminal.text
    live, _, result = terminal.text.rpartition("\r\x1b[K")
    shown = re.findall(r"\r\x1b\[K(?!The certificate)([^\r\n\x1b]*)", live)
    for expected in (
        r"\d:\d\d  start: BMC is starting \(503\)", r"\d:\d\d  gather: task New(, \d+ %, Task 1 has started\.)?",
        r"\d:\d\d  gather: task Running(, \d+ %, Task 1 has started\.)?",
        r"\d:\d\d  download: [\d.]+ [KM]iB of 2\.9 MiB \(\d+ %\), [\d.]+ [KM]iB/s",
    ):
        assert any(re.fullmatch(expected, line) for line in shown), (expected, shown)
    assert all(len(line) < 80 for line in shown)
    assert result.startswith("Archive: ") and "\x1b" not in result


def test_log_on_the_terminal_takes_the_live_line_away(bmc, tmp_path):
    terminal = tool.Terminal(
        [a for a in tool.collect(bmc, tmp_path, "--log-level", "3") if a not in ("--password-file", "-")],
        {"KEMFFDC_PASSWORD": bmc.password})
    assert terminal.end() == 0
    assert "\x1b[K" not in terminal.text


def test_a_dumb_terminal_gets_plain_lines(bmc, tmp_path):
    terminal = tool.Terminal(
        [a for a in tool.collect(bmc, tmp_path) if a not in ("--password-file", "-")],
        {"KEMFFDC_PASSWORD": bmc.password, "TERM": "dumb"})
    assert terminal.end() == 0
    assert "\x1b" not in terminal.text
    assert "gather: task Running" in terminal.text


# --- proxies ----------------------------------------------------------------------------------


def dead_proxy():
    return {name: f"http://127.0.0.1:{tool.free_port()}" for name in PROXIES}


def test_the_environments_proxies_hold(bmc):
    ended = tool.run(tool.check(bmc), password=bmc.password, environment=dead_proxy())
    assert ended.code == 3
    assert bmc.requests() == []


def test_no_proxy_switches_them_off_for_every_request(bmc, tmp_path):
    ended = tool.run(
        tool.collect(bmc, tmp_path, "--no-proxy"), password=bmc.password, environment=dead_proxy())
    assert ended.code == 0, ended.err
    assert len(tool.archives_in(tmp_path)) == 1


# --- export -----------------------------------------------------------------------------------


class Store:
    """An SFTP file store: one account, one folder."""

    def __init__(self, folder, user, password):
        self.folder, self.user, self.password = folder, user, password
        self.loop = asyncio.new_event_loop()
        self.thread = threading.Thread(target=self.loop.run_forever, daemon=True)
        self.thread.start()
        self.server = asyncio.run_coroutine_threadsafe(self._listen(), self.loop).result(20)
        self.port = self.server.sockets[0].getsockname()[1]

    async def _listen(self):
        store = self

        class Accounts(asyncssh.SSHServer):
            def password_auth_supported(self):
                return True

            def validate_password(self, username, password):
                return (username, password) == (store.user, store.password)

        return await asyncssh.create_server(
            Accounts, "127.0.0.1", 0,
            server_host_keys=[asyncssh.generate_private_key("ssh-ed25519")],
            sftp_factory=lambda channel: asyncssh.SFTPServer(channel, chroot=str(self.folder)))

    def stop(self):
        async def close():
            self.server.close()
            await self.server.wait_closed()

        with contextlib.suppress(TimeoutError):
            asyncio.run_coroutine_threadsafe(close(), self.loop).result(10)
        self.loop.call_soon_threadsafe(self.loop.stop)
        self.thread.join(10)


def curl_speaks_sftp():
    return "sftp" in subprocess.run(["curl", "--version"], capture_output=True, text=True, check=False).stdout


@pytest.fixture
def store(tmp_path):
    folder = tmp_path / "store"
    folder.mkdir()
    started = Store(folder, "up", 'a store\'s "word"')
    yield started
    started.stop()


@pytest.mark.skipif(not curl_speaks_sftp(), reason="curl was built without SFTP")
@pytest.mark.parametrize("kind", ["mini", "full"])
def test_export_leaves_the_archive_on_the_file_store(bmc, store, tmp_path, kind):
    password_file = tmp_path / "password"
    password_file.write_text(store.password)
    uri = f"sftp://127.0.0.1:{store.port}/bmc.tar.gz"
    arguments = tool.collect(
        bmc, tmp_path / "unused", "--json", "--log", kind, "--export-uri", uri,
        "--export-user", store.user, "--export-password-file", str(password_file))
    arguments[arguments.index("--interval") + 1] = "1"
    ended = tool.run(arguments, password=bmc.password)
    assert ended.code == 0, ended.err
    account = ended.json
    assert (account["outcome"], account["export_uri"], account["path"]) == ("exported", uri, None)
    assert [step["name"] for step in account["steps"]] == [
        "preflight", "start", "connect", "export", "gather"]
    assert sha256_of(store.folder / "bmc.tar.gz") == bmc.ready["archives"][kind]["sha256"]
    assert not (tmp_path / "unused").exists()
    assert store.password not in ended.out + ended.err + ended.command_line
    assert not [r for r in bmc.requests("GET") if r["path"].startswith("/download")]


@pytest.mark.skipif(not curl_speaks_sftp(), reason="curl was built without SFTP")
def test_export_in_words_names_the_uri(bmc, store, tmp_path):
    uri = f"sftp://127.0.0.1:{store.port}/bmc.tar.gz"
    arguments = tool.collect(bmc, tmp_path, "--export-uri", uri, "--export-user", store.user)
    arguments[arguments.index("--interval") + 1] = "1"
    ended = tool.run(
        arguments, password=bmc.password, environment={"KEMFFDC_EXPORT_PASSWORD": store.password})
    assert ended.code == 0, ended.err
    assert ended.out == f"Exported to: {uri}\n"


@pytest.mark.skipif(not curl_speaks_sftp(), reason="curl was built without SFTP")
def test_export_that_the_file_store_refuses_is_a_failed_task(bmc, store, tmp_path):
    uri = f"sftp://127.0.0.1:{store.port}/bmc.tar.gz"
    arguments = tool.collect(bmc, tmp_path, "--export-uri", uri, "--export-user", store.user)
    arguments[arguments.index("--interval") + 1] = "1"
    ended = tool.run(
        arguments, password=bmc.password, environment={"KEMFFDC_EXPORT_PASSWORD": "wrong"})
    assert ended.code == 5
    assert "The task ended with an exception on the BMC" in ended.err
