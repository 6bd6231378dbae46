# SPDX-License-Identifier: Apache-2.0
"""Many BMCs in one process: what they are, where they are found, and the inventory of them."""

from __future__ import annotations

import collections
import csv
import json
import select
import ssl
import subprocess
import urllib.request
from pathlib import Path
from typing import Any, Callable, Iterator

import pytest
import yaml

import warm_bmc
from conftest import EMULATOR, START_SECONDS, clean_environment, outcome

Start = Callable[..., dict[str, Any]]


@pytest.fixture(name="fleet")
def fleet_fixture() -> Iterator[Start]:
    processes = []

    def start(*arguments: str) -> dict[str, Any]:
        process = warm_bmc.start(arguments, clean_environment(), program=warm_bmc.FLEET)
        processes.append(process)
        assert select.select([process.stdout], [], [], START_SECONDS)[0], "not ready in time"
        return json.loads(process.stdout.readline())

    yield start
    for process in processes:
        process.stdin.close()
        assert process.wait(timeout=START_SECONDS) == 0
        process.stdout.close()


def refusal(*arguments: str) -> tuple[int, str]:
    result = outcome(*arguments, program=warm_bmc.FLEET)
    assert result.stdout == ""
    return result.returncode, result.stderr


def read(bmc: dict[str, Any], path: str) -> dict[str, Any]:
    context = ssl.create_default_context()
    context.check_hostname, context.verify_mode = False, ssl.CERT_NONE
    opener = urllib.request.build_opener(
        urllib.request.ProxyHandler({}), urllib.request.HTTPSHandler(context=context))
    with opener.open(f"https://{bmc['address']}:{bmc['port']}{path}", timeout=10) as answer:
        return json.load(answer)


def test_each_bmc_has_an_address_a_serial_number_and_a_certificate_of_its_own(fleet: Start) -> None:
    bmcs = fleet("--count", "3")["bmcs"]

    assert [bmc["name"] for bmc in bmcs] == ["bmc001", "bmc002", "bmc003"]
    for what in ("address", "serial", "sha256"):
        assert len({bmc[what] for bmc in bmcs}) == 3
    for bmc in bmcs:
        assert read(bmc, "/redfish/v1/")["RedfishVersion"] == "1.15.0"
        assert json.loads(Path(bmc["requests"]).read_text())["path"] == "/redfish/v1/"


def test_addresses_pass_over_what_looks_like_a_network(fleet: Start) -> None:
    bmcs = fleet("--count", "256", "--archive-size", "0")["bmcs"]

    assert [bmc["address"] for bmc in bmcs[252:]] == [
        "127.1.0.253", "127.1.0.254", "127.1.1.1", "127.1.1.2"]


def test_the_same_seed_makes_the_same_fleet(fleet: Start) -> None:
    wishes = ("--count", "20", "--mix", "redfish=3,cim=1", "--faults", "40%")
    told = ("name", "kind", "fault", "serial")

    first, again, other = (
        [[bmc[t] for t in told] for bmc in fleet(*wishes, "--seed", seed)["bmcs"]]
        for seed in ("7", "7", "8"))

    assert first == again != other
    assert collections.Counter(row[1] for row in first) == {"redfish": 15, "cim": 5}
    assert sum(row[2] != "" for row in first) == 8


def test_a_wrong_password_is_one_of_the_faults(fleet: Start) -> None:
    told = fleet("--count", "30", "--faults", "100")
    password = credentials_of(told)["password"]
    refused = set()
    for bmc in told["bmcs"]:
        if bmc["fault"] in ("wrong-password", "cut"):
            status = subprocess.run(
                ["curl", "-sk", "--noproxy", "*", "-K", "-", "-o", "/dev/null", "-w", "%{http_code}"],
                input=f'url = "https://{bmc["address"]}:{bmc["port"]}/redfish/v1/Managers"\n'
                f'user = "admin:{password}"\n', capture_output=True, text=True, check=True).stdout
            refused.add((bmc["fault"], status))

    assert refused == {("wrong-password", "401"), ("cut", "200")}


def credentials_of(told: dict[str, Any]) -> dict[str, str]:
    path = Path(told["credentials"])
    entry = yaml.safe_load(path.read_text())["fleet"]
    secret = Path(entry["password_file"])
    assert {p.stat().st_mode & 0o777 for p in (path, secret)} == {0o600}
    return {"user": entry["user"], "password": secret.read_text().strip()}


def test_an_inventory_is_written_as_a_spreadsheet_writes_it(fleet: Start, tmp_path: Path) -> None:
    file = tmp_path / "rack.csv"
    told = fleet("--count", "4", "--mix", "redfish=1,cim=1", "--inventory", str(file))

    assert file.read_bytes().startswith(b"\xef\xbb\xbfname;address;via;port;group;credential;")
    rows = list(csv.DictReader(file.open(encoding="utf-8-sig", newline=""), delimiter=";"))
    assert [(r["name"], r["address"], r["via"], int(r["port"])) for r in rows] == [
        (b["name"], b["address"], b["kind"], b["port"]) for b in told["bmcs"]]
    assert {r["via"]: r["export.uri"] for r in rows} == {"redfish": "", "cim": told["store"]["uri"]}


def test_an_inventory_is_written_in_groups(fleet: Start, tmp_path: Path) -> None:
    file = tmp_path / "fleet.yaml"
    told = fleet("--count", "4", "--mix", "redfish=1,cim=1", "--inventory", str(file))

    inventory = yaml.safe_load(file.read_text())

    assert list(inventory["groups"]) == ["redfish", "cim"]
    assert inventory["credentials"] == told["credentials"]
    for bmc in told["bmcs"]:
        assert inventory["groups"][bmc["kind"]]["hosts"][bmc["name"]] == {
            "address": bmc["address"], "port": bmc["port"]}


def test_kinds_differ_in_what_they_offer_over_redfish(fleet: Start) -> None:
    bmcs = {bmc["kind"]: bmc for bmc in fleet("--count", "4", "--mix", "redfish=1,standard=1,tree=1,harrow=1")["bmcs"]}

    assert {kind: (bmc["via"], bmc["operation"]) for kind, bmc in bmcs.items()} == {
        "redfish": ("redfish", "oem"), "standard": ("redfish", "standard"), "tree": ("redfish", "tree"),
        "harrow": ("redfish", "tree")}
    assert read(bmcs["harrow"], "/redfish/v1/")["Vendor"] == "Harrow"


@pytest.mark.parametrize("kind", ["csv", "yaml"])
def test_an_inventory_names_operations_where_it_is_asked_to(fleet: Start, tmp_path: Path, kind: str) -> None:
    file = tmp_path / f"rack.{kind}"
    fleet("--count", "3", "--mix", "tree=1,standard=1,cim=1", "--operations", "--inventory", str(file))

    if kind == "csv":
        rows = csv.DictReader(file.open(encoding="utf-8-sig", newline=""), delimiter=";")
        found = {row["group"]: (row["via"], row["operation"]) for row in rows}
    else:
        groups = yaml.safe_load(file.read_text())["groups"]
        found = {name: (group["via"], group.get("operation", "")) for name, group in groups.items()}
    assert found == {"tree": ("redfish", "tree"), "standard": ("redfish", "standard"), "cim": ("cim", "")}


@pytest.mark.parametrize("arguments, said", [
    (["--mix", "ipmi=1"], "take --standard-ports"),
    (["--mix", "redfish=x"], "'redfish=x' is no share of a kind"),
    (["--mix", "ssh=1"], "'ssh=1' is no share of a kind"),
    (["--mix", "redfish=0"], "no kind has a share"),
    (["--count", "0"], "--count: 1 to 10000, not 0"),
    (["--inventory", "x.txt"], "x.txt is neither .csv nor .yaml"),
    (["--faults", "101"], "'101' is no percentage"),
])
def test_a_wish_that_cannot_be_is_refused(arguments: list[str], said: str) -> None:
    code, text = refusal(*arguments)

    assert code == 2
    assert said in text


def test_ports_are_the_usual_ones_if_asked_for(tmp_path: Path) -> None:
    """In a network of its own, where they are free."""
    script = (
        "import json, subprocess, sys\n"
        "fleet = subprocess.Popen([sys.argv[1], '--count', '3', '--mix', 'redfish=1,ipmi=1,cim=1', '--standard-ports'],\n"
        "                         stdin=subprocess.PIPE, stdout=subprocess.PIPE)\n"
        "told = json.loads(fleet.stdout.readline())\n"
        "fleet.stdin.close()\n"
        "print(sorted((b['kind'], b['port']) for b in told['bmcs']), fleet.wait())\n")
    result = subprocess.run(
        [EMULATOR.parent / "tools/private-net", "/usr/bin/python3", "-c", script, warm_bmc.FLEET],
        capture_output=True, text=True, timeout=60, check=False, cwd=tmp_path)
    if result.returncode == 77:
        pytest.skip("no network of one's own")

    assert result.stdout.strip() == "[('cim', 5989), ('ipmi', 623), ('redfish', 443)] 0"
