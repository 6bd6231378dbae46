# SPDX-License-Identifier: Apache-2.0
"""The tool before servers that know nothing of it: fwupd's Redfish service, OpenIPMI's BMC."""

import base64
import hashlib
import http.client
import json
import pathlib
import ssl
import tarfile

import pytest

import foreign
import ipmi_tool
import odd_servers
import tool


@pytest.fixture
def redfish(tmp_path):
    """The port of a stranger's Redfish service, and its certificate."""
    certificate = odd_servers.make_certificate(tmp_path)
    with foreign.redfish_service(certificate, tool.clean_environment()) as port:
        yield port


@pytest.fixture
def ipmi(tmp_path):
    """The port of a stranger's BMC."""
    folder = tmp_path / "ipmi"
    folder.mkdir()
    with foreign.ipmi_bmc(folder, tool.clean_environment()) as port:
        yield port


def over_redfish(command, port, *arguments, user=foreign.REDFISH_USER):
    return [command, "--via", "redfish", "127.0.0.1", "--port", str(port), "--user", user,
            "--password-file", "-", *arguments]


def over_ipmi(command, port, *arguments):
    return [command, "--via", "ipmi", "127.0.0.1", "--port", str(port), "--user", foreign.IPMI_USER,
            "--password-file", "-", *arguments]


# --- Redfish ------------------------------------------------------------------------------------


def test_a_check_says_that_a_tree_can_be_had(redfish):
    """Its service root asks for an account with 400 instead of 401, and it has no manager of the usual name."""
    ended = tool.run(over_redfish("check", redfish, "--json"), password=foreign.REDFISH_PASSWORD)

    assert ended.code == 0, ended.err
    assert ended.json["bmc"]["service_version"] == "1.6.0"
    assert ended.json["operation"] == "tree"


def test_a_check_says_that_it_cannot_export(redfish):
    ended = tool.run(over_redfish("check", redfish, "--operation", "oem", "--json"), password=foreign.REDFISH_PASSWORD)

    assert ended.code == 10, ended.err
    assert "no /redfish/v1/Managers/1" in ended.json["reason"]


def test_a_wrong_password_is_told_in_its_own_words(redfish):
    ended = tool.run(over_redfish("check", redfish), password="wrong")

    assert ended.code == 3
    assert "(HTTP 401: unauthorised)" in ended.err


def test_an_export_ends_before_a_file_is_made(redfish, tmp_path):
    ended = tool.run(over_redfish("collect", redfish, "--operation", "oem", "--output", str(tmp_path / "out")),
                     password=foreign.REDFISH_PASSWORD)

    assert ended.code == 4
    assert "no such operation" in ended.err
    assert tool.files_in(tmp_path / "out") == []


def test_its_tree_is_read_with_user_and_password(redfish, tmp_path):
    """It has no sessions, and its root leads to the update service alone."""
    ended = tool.run(over_redfish("collect", redfish, "--output", str(tmp_path / "out"), "--json"),
                     password=foreign.REDFISH_PASSWORD)

    assert ended.code == 0, ended.err
    with tarfile.open(ended.json["path"]) as archive:
        names = archive.getnames()
        inventory = json.load(archive.extractfile("redfish/v1/UpdateService/FirmwareInventory/index.json"))
    for member in inventory["Members"]:
        assert member["@odata.id"].strip("/") + "/index.json" in names
    assert ended.json["tree"]["resources"] == len(names) - 2
    assert ended.json["tree"]["unread"] == 0


def foreign_task(port, polls):
    """What the stranger's service says of its task when it is asked for the so-manieth time."""
    context = ssl.create_default_context()
    context.check_hostname, context.verify_mode = False, ssl.CERT_NONE
    connection = http.client.HTTPSConnection("127.0.0.1", port, timeout=20, context=context)
    account = base64.b64encode(f"{foreign.REDFISH_USER}:{foreign.REDFISH_PASSWORD}".encode()).decode()
    answers = []
    for path in ["/redfish/v1/", *["/redfish/v1/TaskService/Tasks/545"] * polls]:
        connection.request("GET", path, headers={"Authorization": "Basic " + account})
        answers.append(json.loads(connection.getresponse().read()))
    connection.close()
    return answers[-1]


def test_the_reason_is_read_out_of_a_strangers_task(redfish, start_bmc, tmp_path):
    """Its messages have neither arguments nor a resolution, and its task no times."""
    task = foreign_task(redfish, 6)
    assert task["TaskState"] == "Exception"
    bmc = start_bmc({"redfish": {"answers": {tool.TASK: [{"json": task, "repeat": True}]}}})
    ended = tool.run(tool.collect(bmc, tmp_path / "out", "--json"), password=bmc.password)

    assert ended.code == 5
    assert '"Error verifying image" (Update.1.0.ApplyFailed)' in ended.json["reason"]
    assert "(TaskState Exception, TaskStatus Warning)" in ended.json["reason"]  # 125 percent are none


# --- trust --------------------------------------------------------------------------------------


def sha256_of(certificate):
    der = ssl.PEM_cert_to_DER_cert(pathlib.Path(str(certificate) + ".crt").read_text(encoding="ascii"))
    return hashlib.sha256(der).hexdigest()


@pytest.fixture
def certificates(tmp_path):
    """Two of them, for the same address."""
    made = []
    for name in ("first", "second"):
        (tmp_path / name).mkdir()
        made.append(odd_servers.make_certificate(tmp_path / name))
    return made


def test_a_stranger_is_remembered_and_another_in_his_place_gets_no_password(certificates, tmp_path):
    port = tool.free_port()

    def check(certificate, *arguments):
        with foreign.redfish_service(certificate, tool.clean_environment(), port):
            given = over_redfish("check", port, "--state-dir", str(tmp_path / "state"), "--json", *arguments)
            return tool.run(given, password=foreign.REDFISH_PASSWORD)

    first, again, other, accepted = (check(certificates[0]), check(certificates[0]), check(certificates[1]),
                                     check(certificates[1], "--accept-new-certificate"))
    assert [ended.code for ended in (first, again, other, accepted)] == [0, 0, 3, 0]
    assert [ended.json["bmc"]["certificate"]["trust"] for ended in (first, again, other, accepted)] == [
        "first-use", "known", None, "replaced"]
    assert "The password was not sent." in other.json["reason"]


@pytest.mark.parametrize("shown, code", [(0, 0), (1, 3)])
def test_a_stranger_is_known_by_his_fingerprint_alone(certificates, shown, code):
    with foreign.redfish_service(certificates[shown], tool.clean_environment()) as port:
        arguments = over_redfish("check", port, "--fingerprint", f"SHA256:{sha256_of(certificates[0])}")
        assert tool.run(arguments, password=foreign.REDFISH_PASSWORD).code == code


# --- IPMI ---------------------------------------------------------------------------------------


def test_an_ipmi_session_is_opened_with_the_suite_that_both_know(ipmi, tmp_path):
    arguments = over_ipmi("check", ipmi, "--cipher-suite", str(foreign.IPMI_SUITE), "--json")
    ended = tool.run(arguments, password=foreign.IPMI_PASSWORD, environment=ipmi_tool.environment(tmp_path))

    assert ended.code in (0, 10), ended.err


def test_a_wrong_ipmi_password_is_one(ipmi, tmp_path):
    arguments = over_ipmi("check", ipmi, "--cipher-suite", str(foreign.IPMI_SUITE))
    ended = tool.run(arguments, password="wrong", environment=ipmi_tool.environment(tmp_path))

    assert ended.code == 3, ended.err


def test_a_suite_that_it_lacks_is_named(ipmi, tmp_path):
    ended = tool.run(over_ipmi("check", ipmi), password=foreign.IPMI_PASSWORD,
                     environment=ipmi_tool.environment(tmp_path))

    assert ended.code == 3, ended.err
    assert "does not offer cipher suite 17. Try --cipher-suite 3." in ended.err


def test_commands_that_it_does_not_know_end_the_collection(ipmi, start_bmc, tmp_path):
    start_bmc({"sftp": {}})  # a file service, so that it gets as far as the commands
    arguments = over_ipmi("collect", ipmi, "--cipher-suite", str(foreign.IPMI_SUITE), "--output", str(tmp_path / "out"),
                          "--json")
    ended = tool.run(arguments, password=foreign.IPMI_PASSWORD, environment=ipmi_tool.environment(tmp_path))

    assert ended.code == 4, ended.err
    assert ended.json["refusals"][0]["completion_code"] == 0xC1
    assert "(completion code C1h: it does not know the command)" in ended.json["reason"]


# --- the search for a channel -------------------------------------------------------------------


def search(folder, *arguments):
    """What came of a check that names no channel, of 127.0.0.1 and its usual ports."""
    ended = tool.run(["check", "127.0.0.1", "--user", foreign.REDFISH_USER, "--password-file", "-", "--json", *arguments],
                     password=foreign.REDFISH_PASSWORD, environment=ipmi_tool.environment(folder))
    return ended, [(attempt["channel"], attempt["outcome"]) for attempt in ended.json["attempts"]]


def test_a_search_among_strangers_ends_with_a_tree_and_tells_what_each_of_them_lacks(certificates, tmp_path):
    (tmp_path / "ipmi").mkdir()
    with foreign.redfish_service(certificates[0], tool.clean_environment(), 443), \
            foreign.ipmi_bmc(tmp_path / "ipmi", tool.clean_environment(), 623):
        ended, attempts = search(tmp_path)

    assert (ended.code, ended.json["channel"], ended.json["operation"]) == (0, "redfish", "tree"), ended.err
    assert attempts[:3] == [("redfish", "limited"), ("ipmi", "unsupported"), ("cim", "unsupported")]
    reasons = [attempt["reason"] for attempt in ended.json["attempts"]]
    assert "The BMC has no /redfish/v1/Managers/1" in reasons[0]
    assert "the BMC does not offer cipher suite 17. Try --cipher-suite 3." in reasons[1]


def test_a_strangers_redfish_does_not_keep_from_a_bmc_that_gathers(certificates, start_bmc, tmp_path):
    start_bmc({"user": foreign.REDFISH_USER, "password": foreign.REDFISH_PASSWORD, "ipmi": {"polls": 0}, "sftp": {}},
              "--ipmi-port", "623")
    with foreign.redfish_service(certificates[0], tool.clean_environment(), 443):
        ended, attempts = search(tmp_path)

    assert (ended.code, ended.json["channel"]) == (0, "ipmi"), ended.err
    assert attempts == [("redfish", "limited"), ("ipmi", "ok")]
