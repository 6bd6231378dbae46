# SPDX-License-Identifier: Apache-2.0
"""Whom the tool trusts with a password, and what it does with answers that nobody should send."""

import hashlib
import os
import subprocess

import pytest

import odd_servers
import tool


needs_ipv6 = pytest.mark.skipif(not tool.has_ipv6(), reason="no IPv6 on this machine")


def has_authorization(request):
    return any(name.lower() == "authorization" for name in request["headers"])


def with_authorization(bmc):
    return [r for r in bmc.requests() if has_authorization(r)]


def at(port, command="collect", *arguments):
    """The arguments of a run against a server that is no emulated BMC."""
    own = ["--interval", "0", "--tries", "3"] if command == "collect" else []
    return [command, "--via", "redfish", "127.0.0.1", "--port", str(port), "--password-file", "-",
            *own, *arguments]


# --- CA files ---------------------------------------------------------------------------------


@pytest.mark.parametrize("how", ["option", "environment"])
def test_an_unusable_ca_file_ends_the_run_at_once(bmc, tmp_path, how):
    file = str(tmp_path / "absent.pem")
    arguments = tool.collect(bmc, tmp_path / "out", *(["--ca-file", file] if how == "option" else []))
    environment = {"VARNEX_CA_FILE": file} if how == "environment" else {}
    ended = tool.run(arguments, password=bmc.password, environment=environment)
    assert ended.code == 8
    assert ended.err == (
        f"kemffdc: The CA file {file} cannot be read: No such file or directory. "
        "Correct --ca-file or VARNEX_CA_FILE. [exit code 8]\n")
    assert bmc.requests() == []
    assert not (tmp_path / "out").exists()


@pytest.mark.parametrize("how", ["option", "environment"])
def test_a_certificate_of_the_ca_is_taken_and_said_to_be_verified(bmc, tmp_path, how):
    file = bmc.ready["redfish"]["certificate"]
    option = ["--ca-file", file] if how == "option" else []
    environment = {"VARNEX_CA_FILE": file} if how == "environment" else {}
    log = tmp_path / "log"
    ended = tool.run(tool.collect(bmc, tmp_path / "out", "--json", "--log-file", str(log), *option),
                     password=bmc.password, environment=environment)
    assert ended.code == 0, ended.err
    assert ended.json["bmc"]["certificate"]["verified"] is True
    assert f"is verified against {file}." in log.read_text(encoding="utf-8"), "the download"
    words = tool.run(tool.check(bmc, *option), password=bmc.password, environment=environment)
    assert words.code == 0, words.err
    assert f"  verified by:   {file}\n" in words.out and "not verified" not in words.out


@pytest.mark.parametrize("host", [
    pytest.param("::1", marks=needs_ipv6), pytest.param("::1%lo", marks=needs_ipv6), "localhost"])
def test_every_spelling_of_the_host_is_verified(start_bmc, tmp_path, host):
    bmc = start_bmc(None, "--bind", "127.0.0.1" if host == "localhost" else "::1")
    arguments = tool.collect(bmc, tmp_path, "--ca-file", bmc.ready["redfish"]["certificate"])
    arguments[3] = host
    assert tool.run(arguments, password=bmc.password).code == 0


@pytest.mark.parametrize("days, code", [(30, 0), (-1, 3)])
def test_a_certificate_that_a_ca_has_signed_is_good_until_it_ends(tmp_path, days, code):
    ca, server_file = odd_servers.make_chain(tmp_path, days)
    with odd_servers.odd_server(prepare=lambda context, _: context.load_cert_chain(server_file)) as server:
        ended = tool.run(at(server.port, "collect", "--ca-file", str(ca), "--output", str(tmp_path / "out")),
                         password="a secret word")
        assert ended.code == code, ended.err
        assert bool(server.requests) == (code == 0)
    if code != 0:
        assert "is not good for the CAs in" in ended.err and "certificate has expired" in ended.err


def where_the_system_trusts(ca, folder):
    """A command prefix under which the system's own CAs are this one alone."""
    folder.mkdir()
    name = subprocess.run(["openssl", "x509", "-hash", "-noout", "-in", ca], capture_output=True, text=True,
                          check=True).stdout.strip()
    (folder / f"{name}.0").write_bytes(ca.read_bytes())
    user = [] if os.geteuid() == 0 else ["--user", "--map-root-user"]
    prefix = ["unshare", *user, "--mount", "sh", "-c",
              'mount --bind "$0" /etc/ssl/certs || exit 99; exec "$@"', str(folder)]
    probe = subprocess.run([*prefix, "true"], capture_output=True, timeout=20, check=False)
    if probe.returncode != 0:
        pytest.skip(f"no mounts of one's own here: {probe.stderr.decode().strip()}")
    return prefix


def test_what_the_system_trusts_does_not_count(tmp_path):
    """Any of a hundred CAs could sign for an address."""
    for name in ("named", "other"):
        (tmp_path / name).mkdir()
    named, _ = odd_servers.make_chain(tmp_path / "named", ca_name="a CA that is named")
    other, server_file = odd_servers.make_chain(tmp_path / "other")
    prefix = where_the_system_trusts(other, tmp_path / "system")
    with odd_servers.odd_server(prepare=lambda context, _: context.load_cert_chain(server_file)) as server:
        ended = tool.run(at(server.port, "check", "--ca-file", str(named)), password="a secret word", prefix=prefix)
        assert ended.code == 3, ended.err
        assert "is not good for the CAs in" in ended.err
        assert server.requests == []


@pytest.mark.parametrize("command", ["check", "collect"])
@pytest.mark.parametrize("how", ["option", "environment"])
def test_an_impostor_gets_no_password_in_any_request(start_bmc, tmp_path, command, how):
    bmc, impostor = start_bmc(), start_bmc()
    file = bmc.ready["redfish"]["certificate"]
    option = ["--ca-file", file] if how == "option" else []
    environment = {"VARNEX_CA_FILE": file} if how == "environment" else {}
    arguments = (tool.check(impostor, "--json", *option) if command == "check"
                 else tool.collect(impostor, tmp_path / "out", "--json", *option))
    ended = tool.run(arguments, password=impostor.password, environment=environment)
    assert ended.code == 3
    assert impostor.requests() == [], "no request at all, so no password in any"
    account = ended.json
    assert account["reason"].startswith(
        f"The certificate of 127.0.0.1 port {impostor.port} is not good for the CAs in {file} (")
    assert account["steps"][-1]["name"] == "preflight" and account["steps"][-1]["code"] == 6
    shown = account["bmc"]["certificate"]
    assert shown["sha256"].replace(":", "").lower() == impostor.ready["redfish"]["sha256"]
    assert shown["verified"] is False


def test_a_certificate_for_another_address_is_no_good(bmc):
    relay = odd_servers.Relay(bmc.port, "127.0.0.2")  # not in the certificate
    arguments = tool.check(bmc, "--ca-file", bmc.ready["redfish"]["certificate"])
    arguments[3], arguments[5] = "127.0.0.2", str(relay.port)
    ended = tool.run(arguments, password=bmc.password)
    assert ended.code == 3
    assert "is not good for the CAs in" in ended.err and "subject name matches" in ended.err
    assert bmc.requests() == []
    arguments = [a for a in arguments if a not in ("--ca-file", bmc.ready["redfish"]["certificate"])]
    assert tool.run(arguments, password=bmc.password).code == 0, "without a CA file its names are not looked at"
    relay.stop()


def trusted_by(way, bmc):
    return {"CA file": ["--ca-file", bmc.ready["redfish"]["certificate"]],
            "fingerprint": ["--fingerprint", bmc.ready["redfish"]["sha256"]],
            "first use": []}[way]


WAYS = ["CA file", "fingerprint", "first use"]


# The tool looks before each step of the library, which verifies nothing.
@pytest.mark.parametrize("way", WAYS)
@pytest.mark.parametrize("last", ["ExportFFDCData", "Tasks/8A6CA3D3EC", "Managers/1"])
def test_an_impostor_that_takes_over_in_between_gets_no_password(start_bmc, tmp_path, last, way):
    bmc, impostor = start_bmc({"redfish": {"answers": {f"* *{last}": [{"delay": 2}]}}}), start_bmc()
    relay = odd_servers.Relay(bmc.port)
    arguments = tool.collect(bmc, tmp_path / "out", *trusted_by(way, bmc))
    arguments[arguments.index("--port") + 1] = str(relay.port)
    running = tool.Running(arguments, password=bmc.password)
    bmc.wait_for(last)
    relay.target = impostor.port  # for connections from now on; the open one gets its answer
    ended = running.end()
    relay.stop()
    assert with_authorization(impostor) == []
    assert impostor.requests() == []
    assert ended.code == 3, ended.err
    assert (f"The certificate of 127.0.0.1 port {relay.port} was in order at the beginning and is "
            "not any more") in ended.err


@pytest.mark.parametrize("way", WAYS)
def test_an_impostor_that_takes_over_while_the_bmc_gathers_gets_no_password(start_bmc, tmp_path, way):
    bmc, impostor = start_bmc({"redfish": {"task_states": ["Running"]}}), start_bmc()
    relay = odd_servers.Relay(bmc.port)
    arguments = tool.collect(bmc, tmp_path / "out", *trusted_by(way, bmc))
    arguments[arguments.index("--port") + 1] = str(relay.port)
    arguments[arguments.index("--interval") + 1] = "3"
    running = tool.Running([*arguments, "--json"], password=bmc.password)
    bmc.wait_for("/Tasks/1")
    relay.wait_until_quiet()  # in the library's pause: between the tool's look and the library's request nobody looks
    relay.turn_to(impostor.port)
    ended = running.end()
    relay.stop()
    assert impostor.requests() == []
    assert ended.code == 3, ended.err
    reason = f"The certificate of 127.0.0.1 port {relay.port} was in order at the beginning and is not any more"
    assert ended.json["reason"].startswith(reason)
    assert tool.files_in(tmp_path) == [] or tool.files_in(tmp_path / "out") == []


@pytest.mark.parametrize("way", WAYS)
def test_a_bmc_that_starts_is_checked_before_it_is_asked_again(start_bmc, tmp_path, way):
    bmc, impostor = start_bmc({"redfish": {"answers": {tool.SERVICE_ROOT: [{"status": 503, "repeat": True}]}}}), start_bmc()
    relay = odd_servers.Relay(bmc.port)
    arguments = tool.check(bmc, *trusted_by(way, bmc))
    arguments[arguments.index("--port") + 1] = str(relay.port)
    running = tool.Running(arguments, password=bmc.password)
    # The library's first attempt; seconds pass before its next one, and the tool looks before that.
    bmc.wait_for_request(has_authorization, "with a password")
    relay.wait_until_quiet()
    relay.turn_to(impostor.port)
    ended = running.end()
    relay.stop()
    assert with_authorization(impostor) == []
    assert ended.code == 3 and "is not any more" in ended.err


# --- the first use, and after it ----------------------------------------------------------------


class Known:
    """A state folder, and the line of a BMC in its known_bmcs."""

    def __init__(self, folder):
        self.state = folder / "state"
        self.file = self.state / "known_bmcs"

    def run(self, bmc, *arguments, **options):
        return tool.run([*tool.check(bmc, "--state-dir", str(self.state)), *arguments], password=bmc.password, **options)

    def lines(self):
        return [line for line in self.file.read_text(encoding="utf-8").splitlines() if not line.startswith("#")]

    def write(self, port, sha256):
        self.state.mkdir(mode=0o700, exist_ok=True)
        self.file.write_text(f"127.0.0.1:{port} SHA256:{sha256}\n", encoding="utf-8")


OTHER = ":".join(["AB"] * 32)


@pytest.fixture
def known(tmp_path):
    return Known(tmp_path)


def sha256_of(bmc):
    """As the tool writes it."""
    text = bmc.ready["redfish"]["sha256"].upper()
    return ":".join(text[i : i + 2] for i in range(0, 64, 2))


def test_a_first_certificate_is_remembered_and_then_known(bmc, known):
    first = known.run(bmc, "--json")
    assert first.code == 0, first.err
    place = f"The certificate of 127.0.0.1 port {bmc.port}"
    said = f"{place}, SHA-256 {sha256_of(bmc)}, is new, is accepted and remembered in {known.file}."
    assert said in first.err.splitlines() and said in first.json["bmc"]["notes"]
    assert (first.json["bmc"]["certificate"]["trust"], first.json["bmc"]["certificate"]["verified"]) == ("first-use", False)
    (line,) = known.lines()
    assert line.startswith(f"127.0.0.1:{bmc.port} SHA256:{sha256_of(bmc)} first seen ")

    second = known.run(bmc, "--json")
    assert second.code == 0 and place not in second.err and second.json["bmc"]["notes"] == []
    assert (second.json["bmc"]["certificate"]["trust"], second.json["bmc"]["certificate"]["verified"]) == ("known", True)
    assert known.lines() == [line]
    words = known.run(bmc).out
    assert "  verified by:   known from an earlier run\n" in words and "not verified" not in words


@pytest.mark.parametrize("command", ["check", "collect"])
def test_another_certificate_than_the_known_one_is_refused_before_any_request(bmc, known, tmp_path, command):
    known.write(bmc.port, OTHER)
    arguments = tool.check(bmc) if command == "check" else tool.collect(bmc, tmp_path / "out")
    ended = tool.run([*arguments, "--state-dir", str(known.state), "--json"], password=bmc.password)
    assert ended.code == 3 and bmc.requests() == []
    assert ended.json["reason"] == (
        f"The certificate of 127.0.0.1 port {bmc.port} is not the one that is known ({known.file}, line 1). It has "
        f"SHA-256 {sha256_of(bmc)}. The password was not sent. Somebody may be in the BMC's place. If the BMC has a "
        "new certificate, compare with its own and use --accept-new-certificate.")
    assert ended.json["bmc"]["certificate"]["sha256"] == sha256_of(bmc)
    assert ended.json["bmc"]["certificate"]["trust"] is None
    assert known.file.read_text(encoding="utf-8") == f"127.0.0.1:{bmc.port} SHA256:{OTHER}\n"


def test_a_new_certificate_takes_the_place_of_the_known_one_when_asked(bmc, known):
    known.write(bmc.port, OTHER)
    ended = known.run(bmc, "--accept-new-certificate", "--json")
    assert ended.code == 0, ended.err
    assert ended.json["bmc"]["certificate"]["trust"] == "replaced"
    assert "is accepted in the place of the one that was known in " in ended.err
    (line,) = known.lines()
    assert f"SHA256:{sha256_of(bmc)}" in line
    assert known.run(bmc).code == 0


def test_with_insecure_anybody_is_trusted_and_nothing_remembered(bmc, known):
    known.write(bmc.port, OTHER)
    ended = known.run(bmc, "--insecure", "--json")
    assert ended.code == 0, ended.err
    assert (ended.json["bmc"]["certificate"]["trust"], ended.json["bmc"]["notes"]) == (None, [])
    assert f"SHA256:{OTHER}" in known.lines()[0]


@pytest.mark.parametrize("form", ["{colons}", "SHA256:{colons}", "{plain}"])
def test_a_fingerprint_names_the_one_certificate(start_bmc, known, form):
    bmc, impostor = start_bmc(), start_bmc()
    given = form.format(colons=sha256_of(bmc), plain=bmc.ready["redfish"]["sha256"])
    ended = known.run(bmc, "--fingerprint", given, "--json")
    assert ended.code == 0, ended.err
    assert ended.json["bmc"]["certificate"]["trust"] == "fingerprint" and not known.state.exists()
    ended = known.run(impostor, "--fingerprint", given)
    assert ended.code == 3 and impostor.requests() == []
    assert f"is not the one that --fingerprint names. It has SHA-256 {sha256_of(impostor)}." in ended.err


def test_a_folder_that_cannot_be_written_is_a_note_and_no_failure(bmc, known, tmp_path):
    (tmp_path / "state").write_text("a file is in the way", encoding="utf-8")
    ended = tool.run(tool.collect(bmc, tmp_path / "out", "--state-dir", str(known.state / "below"), "--json"),
                     password=bmc.password)
    assert ended.code == 0, ended.err
    (note,) = [note for note in ended.json["bmc"]["notes"] if "certificate" in note]
    assert ", is new, is accepted and cannot be remembered: The state folder " in note


def test_what_cannot_be_remembered_still_holds_for_the_run(start_bmc, known, tmp_path):
    slow = {"redfish": {"answers": {"* *ExportFFDCData": [{"delay": 2}]}}}
    bmc, impostor = start_bmc(slow), start_bmc()
    relay = odd_servers.Relay(bmc.port)
    (tmp_path / "state").write_text("a file is in the way", encoding="utf-8")
    arguments = tool.collect(bmc, tmp_path / "out", "--state-dir", str(known.state))
    arguments[arguments.index("--port") + 1] = str(relay.port)
    running = tool.Running(arguments, password=bmc.password)
    bmc.wait_for("ExportFFDCData")
    relay.target = impostor.port
    ended = running.end()
    relay.stop()
    assert ended.code == 3 and impostor.requests() == []
    assert "was in order at the beginning and is not any more." in ended.err


def test_known_certificates_that_cannot_be_read_trust_nobody(bmc, known):
    known.write(bmc.port, "nonsense")
    ended = known.run(bmc)
    assert ended.code == 8 and bmc.requests() == []
    assert f"{known.file}:1: " in ended.err
    assert known.run(bmc, "--fingerprint", sha256_of(bmc)).code == 0, "then it is not asked"


def test_with_a_ca_file_nothing_is_remembered(bmc, known):
    assert known.run(bmc, "--ca-file", bmc.ready["redfish"]["certificate"]).code == 0
    assert not known.state.exists()


def test_what_stands_on_the_command_line_comes_before_the_environment(start_bmc, known):
    bmc, other = start_bmc(), start_bmc()
    environment = {"VARNEX_CA_FILE": other.ready["redfish"]["certificate"]}
    assert known.run(bmc, environment=environment).code == 3
    assert known.run(bmc, "--insecure", environment=environment).code == 0
    assert known.run(bmc, "--fingerprint", sha256_of(bmc), environment=environment).code == 0


def test_the_download_too_is_not_checked_against_a_ca_file_that_does_not_hold(start_bmc, tmp_path):
    bmc, other = start_bmc(), start_bmc()
    arguments = tool.collect(bmc, tmp_path / "out", "--fingerprint", sha256_of(bmc))
    ended = tool.run(arguments, password=bmc.password,
                     environment={"VARNEX_CA_FILE": other.ready["redfish"]["certificate"]})
    assert ended.code == 0, ended.err


def test_each_port_has_a_certificate_of_its_own(start_bmc, known):
    """A redirect may lead to another port of the same host."""
    front = start_bmc()
    bmc = start_bmc({**redirecting(f"https://127.0.0.1:{front.port}/redfish/v1/"), "password": "a secret word"})
    assert known.run(bmc).code == 0
    assert sorted(line.split()[0] for line in known.lines()) == sorted(
        f"127.0.0.1:{port}" for port in (bmc.port, front.port))
    assert known.run(bmc).code == 0


def test_who_was_in_the_bmc_s_place_at_the_download_is_found_afterwards(start_bmc, tmp_path):
    """The window between the tool's look and the library's request is one moment; it is closed by looking again."""
    slow = {"redfish": {"archive": {"size": 300000}, "answers": {"GET /download/*": [{"rate": 200000}]}}}
    bmc, impostor = start_bmc(slow), start_bmc()
    relay = odd_servers.Relay(bmc.port)
    arguments = tool.collect(bmc, tmp_path / "out")
    arguments[arguments.index("--port") + 1] = str(relay.port)
    running = tool.Running([*arguments, "--json"], password=bmc.password)
    bmc.wait_for("/download/")
    relay.target = impostor.port
    ended = running.end()
    relay.stop()
    assert ended.code == 3 and ended.json["steps"][-1]["name"] == "certificate"
    assert "if the password may have gone to him, change it." in ended.err
    assert not (tmp_path / "out").exists(), "what an impostor may have sent is not delivered"


# --- redirects --------------------------------------------------------------------------------


def redirecting(target):
    return {"redfish": {"answers": {tool.SERVICE_ROOT: [{"redirect": target, "repeat": True}]}}}


def test_a_redirect_to_another_host_is_refused_before_the_password_leaves(start_bmc):
    other = start_bmc(None, "--bind", "127.0.0.2")
    bmc = start_bmc(redirecting(f"https://127.0.0.2:{other.port}/redfish/v1/"))
    ended = tool.run(tool.check(bmc), password=bmc.password)
    assert ended.code == 3
    assert (f"kemffdc: 127.0.0.1 port {bmc.port} redirects to another host, "
            f"https://127.0.0.2:{other.port}: the password was not sent there.") in ended.err
    assert other.requests() == [] and with_authorization(bmc) == []


@pytest.mark.parametrize("target", ["http://127.0.0.1:9/redfish/v1/", "ftp://127.0.0.1:9/x"])
def test_a_redirect_away_from_https_is_refused_before_the_password_leaves(start_bmc, target):
    bmc = start_bmc(redirecting(target))
    ended = tool.run(tool.check(bmc), password=bmc.password)
    assert ended.code == 3
    named = target.split("/")[0] + "//127.0.0.1:9"
    assert (f"kemffdc: 127.0.0.1 port {bmc.port} redirects to {named}, away from HTTPS: "
            "the password could be read on the way.") in ended.err
    assert with_authorization(bmc) == []


def test_a_redirect_on_the_same_host_is_followed(start_bmc, tmp_path):
    front = start_bmc()
    bmc = start_bmc({**redirecting(f"https://127.0.0.1:{front.port}/redfish/v1/"), "password": "a secret word"})
    ended = tool.run(tool.collect(bmc, tmp_path), password=bmc.password)
    assert ended.code == 0, ended.err


def test_a_redirect_of_the_manager_is_looked_at_as_well(start_bmc):
    other = start_bmc(None, "--bind", "127.0.0.2")
    bmc = start_bmc({"redfish": {"answers": {"GET /redfish/v1/Managers/1": [
        {"redirect": f"https://127.0.0.2:{other.port}/redfish/v1/Managers/1", "repeat": True}]}}})
    ended = tool.run(tool.check(bmc), password=bmc.password)
    assert ended.code == 3 and "redirects to another host" in ended.err
    assert other.requests() == []


# --- answers whose first header line begins with a blank ------------------------------------------

ODD_PLACES = {
    "root": lambda method, path: path == "/redfish/v1/",
    "manager": lambda method, path: path.endswith("/Managers/1"),
    "probe": lambda method, path: path.endswith("8A6CA3D3EC"),
    "export": lambda method, path: "ExportFFDCData" in path,
    "task": lambda method, path: path.endswith("/Tasks/1"),
    "session": lambda method, path: method == "POST" and "Sessions" in path,
}
CODE_AT = {"root": 3, "manager": 3, "probe": 3, "export": 4, "task": 5, "session": 7}


@pytest.mark.parametrize("place", sorted(ODD_PLACES))
def test_a_first_header_line_that_begins_with_a_blank_ends_in_words(tmp_path, place):
    with odd_servers.odd_server(odd_servers.blank_before_the_first_header(ODD_PLACES[place])) as server:
        ended = tool.run(at(server.port, "collect", "--output", str(tmp_path)), password="a secret word")
        assert ended.code == CODE_AT[place], ended.err
        assert "header line" in ended.err and "Sanitizer" not in ended.err
        assert tool.files_in(tmp_path) == []


def test_a_root_that_answers_400_to_anybody_is_asked_with_the_credentials():
    def respond(method, path):
        logged_in = any(h.lower().startswith("authorization:") for h in server.requests[-1][2])
        status, headers, body = odd_servers.ordinary_answer(method, path)
        return odd_servers.as_bytes(status if logged_in else 400, headers, body)

    with odd_servers.odd_server(respond) as server:
        ended = tool.run(at(server.port, "check"), password="a secret word")
    assert ended.code == 0, ended.err


def test_requests_share_a_connection_all_the_same():
    with odd_servers.odd_server() as server:
        ended = tool.run(at(server.port, "check"), password="a secret word")
        assert ended.code == 0, ended.err
        assert [path for _, path, _ in server.requests][:2] == ["/redfish/v1/", "/redfish/v1/Managers/1"]
        assert server.connections == 5, "the tool's preflight, the library, and a look before each of its steps"


def test_the_ordinary_odd_server_gives_its_archive(tmp_path):
    with odd_servers.odd_server() as server:
        ended = tool.run(at(server.port, "collect", "--output", str(tmp_path), "--json"),
                         password="a secret word")
    assert ended.code == 0, ended.err
    assert ended.json["sha256"] == hashlib.sha256(odd_servers.ARCHIVE).hexdigest()
