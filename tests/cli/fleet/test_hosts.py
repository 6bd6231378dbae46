# SPDX-License-Identifier: Apache-2.0
"""kemffdc fleet hosts, as a user runs it: what an inventory comes to."""

import hashlib
import json
import os
import random
import re
import subprocess
import time

import pytest
from ClusterShell.NodeSet import NodeSet

import tool

import warm_bmc

TABLE = """name,address,via,group,credential,port
bmc[001-003],10.0.0.[1-3],redfish,rack3,lab,8443
old7.example,,ipmi,,,
"""
ACCOUNTS = "lab:\n  user: service\n  password_command: [cat, /nonexistent]\n"


@pytest.fixture(name="folder")
def folder_(tmp_path):
    (tmp_path / "rack.csv").write_text(TABLE, encoding="utf-8")
    accounts = tmp_path / "accounts.yaml"
    accounts.write_text(ACCOUNTS, encoding="utf-8")
    accounts.chmod(0o600)
    return tmp_path


def hosts(folder, *arguments, environment=None):
    """With paths below the folder as F."""
    typed = [argument.replace("F/", f"{folder}/") for argument in arguments]
    ended = tool.run(["fleet", "hosts", *typed], environment=environment)
    ended.err = ended.err.replace(str(folder), "F")
    return ended


def names(ended):
    assert ended.code == 0, ended.err
    return [host["name"] for host in ended.json["hosts"]]


def test_it_shows_groups_hosts_settings_and_places_within_eighty_columns(folder):
    environment = {**tool.clean_environment(), "XDG_STATE_HOME": str(folder / "state")}
    shown = subprocess.run([tool.TOOL, "fleet", "hosts", "rack.csv", "--credentials", "accounts.yaml", "--tries", "9"],
                           cwd=folder, env=environment, capture_output=True, text=True, timeout=60, check=True)
    assert shown.stdout == """\
rack.csv: 4 BMCs
  in no group: old7.example
  group rack3: bmc[001-003]

NAME          ADDRESS       CHANNEL  CREDENTIAL
bmc001        10.0.0.1      redfish  lab
bmc002        10.0.0.2      redfish  lab
bmc003        10.0.0.3      redfish  lab
old7.example  old7.example  ipmi     -

bmc[001-003]
via                      redfish              rack.csv:2
user                     service              accounts.yaml:2 (lab)
password_command         cat ...              accounts.yaml:3 (lab)
port                     8443                 rack.csv:2
tries                    9                    command line

old7.example
via                      ipmi                 rack.csv:3

Left out, as they do not fit here:
tries                    command line

All else is so by default: kemffdc config HOST shows it.
"""
    assert shown.stderr == ""
    assert max(map(len, shown.stdout.splitlines())) <= 80
    assert not (folder / "state").exists()


def test_as_json_each_host_has_its_settings_and_who_has_said_them(folder):
    ended = hosts(folder, "F/rack.csv", "--credentials", "F/accounts.yaml", "--json")
    assert names(ended) == ["bmc001", "bmc002", "bmc003", "old7.example"]
    assert ended.json["groups"] == [{"name": "rack3", "count": 3, "hosts": "bmc[001-003]"}]
    second = ended.json["hosts"][1]
    assert (second["host"], second["channel"], second["credential"]) == ("10.0.0.2", "redfish", "lab")
    settings = {one["name"]: one for one in second["settings"]}
    assert settings["port"] == {"name": "port", "value": "8443", "origin": "inventory",
                                "place": f"{folder}/rack.csv:2", "section": None}
    assert settings["user"]["section"] == "lab"
    assert settings["password_command"]["value"] == "cat ..."
    assert settings["tries"]["origin"] == "default"
    assert {one["name"] for one in ended.json["hosts"][3]["settings"]} >= {"via", "cipher_suite", "port"}


def test_the_operation_is_a_setting_like_others(folder):
    (folder / "rack.csv").write_text("name,via,operation\na,redfish,tree\nb,redfish,\nc,ipmi,tree\n", encoding="utf-8")
    settings = [{one["name"]: (one["value"], one["origin"]) for one in host["settings"]}
                for host in hosts(folder, "F/rack.csv", "--json").json["hosts"]]
    assert settings[0]["operation"] == ("tree", "inventory")
    assert settings[1]["operation"] == ("auto", "default")
    shown = re.sub(r" *\n? *\S+/rack.csv:(?=\d)", " :", hosts(folder, "F/rack.csv").out)
    assert re.search(r"^a\nvia +redfish :2\noperation +tree :2$", shown, re.MULTILINE), shown
    assert re.search(r"^Left out, as they do not fit here:\noperation :4$", shown, re.MULTILINE), shown


def test_nothing_is_connected_to(folder, bmc):
    (folder / "rack.csv").write_text(f"name,address,via,port\na,{bmc.address},redfish,{bmc.port}\n", encoding="utf-8")
    assert names(hosts(folder, "F/rack.csv", "--json")) == ["a"]
    assert bmc.requests() == []


def test_a_user_s_file_counts_behind_the_inventory(folder):
    configuration = folder / "config" / "kemffdc"
    configuration.mkdir(parents=True)
    (configuration / "kemffdc.conf").write_text("defaults: {via: cim, export: {uri: 'sftp://s/'}, port: 1}\n", encoding="utf-8")
    ended = hosts(folder, "F/rack.csv", "--credentials", "F/accounts.yaml", "--json", "--limit", "bmc001",
                  environment={"XDG_CONFIG_HOME": str(folder / "config")})
    settings = {one["name"]: (one["value"], one["origin"]) for one in ended.json["hosts"][0]["settings"]}
    assert settings["via"] == ("redfish", "inventory")
    assert settings["port"] == ("8443", "inventory")
    assert settings["export.uri"] == ("sftp://s/", "user-file")


@pytest.mark.parametrize("kind", ["csv", "yaml"])
def test_the_inventory_of_a_fleet_that_others_have_written(folder, kind):
    """That of the emulated fleet: a spreadsheet's own dialect, or groups; accounts beside it."""
    fleet = warm_bmc.start(["--count", "9", "--mix", "redfish=50,cim=50", "--inventory", folder / f"fleet.{kind}"],
                           tool.clean_environment(), program=warm_bmc.FLEET)
    try:
        ready = json.loads(fleet.stdout.readline())
        ended = hosts(folder, f"F/fleet.{kind}", "--credentials", ready["credentials"], "--json")
        assert sorted(names(ended)) == [bmc["name"] for bmc in ready["bmcs"]]
        assert ended.err == ""
        for host in ended.json["hosts"]:
            bmc = next(one for one in ready["bmcs"] if one["name"] == host["name"])
            settings = {one["name"]: one["value"] for one in host["settings"]}
            assert (host["host"], host["channel"]) == (bmc["address"], bmc["kind"])
            assert (settings["port"], settings["user"]) == (str(bmc["port"]), ready["user"])
    finally:
        fleet.stdin.close()
        fleet.wait(timeout=60)
        fleet.stdout.close()


def blocks_of_the_page(heading):
    """What stands between back-ticks below a heading of docs/fleet.md."""
    page = (tool.ROOT / "docs" / "fleet.md").read_text(encoding="utf-8")
    part = re.search(rf"^## {heading}$(.*?)^## ", page, re.MULTILINE | re.DOTALL)[1]
    return re.findall(r"^```\w*\n(.*?)^```", part, re.MULTILINE | re.DOTALL)


def test_the_lists_of_the_page_are_what_it_says(folder):
    blocks = blocks_of_the_page("The inventory")
    table = next(block for block in blocks if block.startswith("name,"))
    groups = next(block for block in blocks if block.startswith("credentials:"))
    accounts = blocks_of_the_page("Credentials")[0]
    (folder / "rack.csv").write_text(table, encoding="utf-8")
    (folder / "fleet.yaml").write_text(groups, encoding="utf-8")
    (folder / "accounts.yaml").write_text(accounts, encoding="utf-8")
    shown = hosts(folder, "F/rack.csv", "--credentials", "F/accounts.yaml", "--json")
    assert NodeSet.fromlist(names(shown)) == NodeSet("bmc[001-040],old7.example")
    assert (shown.err, shown.json["hosts"][39]["host"]) == ("", "10.0.0.40")
    shown = hosts(folder, "F/fleet.yaml", "--json")
    assert NodeSet.fromlist(names(shown)) == NodeSet("bmc[001-040].example,old[7-9].example,lone.example")
    assert {group["name"]: group["hosts"] for group in shown.json["groups"]} == {
        "old": "old[7-9].example", "rack3": "bmc[001-040].example", "spare": "old7.example"}
    assert {host["credential"] for host in shown.json["hosts"]} == {"lab"}


def test_faults_read_as_the_page_shows_them(folder):
    told = next(block for block in blocks_of_the_page("The inventory") if block.startswith("rack.csv:17"))
    rows = [f"bmc{number:03},10.0.0.{number - 1}," for number in range(2, 32)]
    rows[17 - 2] += "redfihs"
    rows[31 - 2] = "bmc031,10.0.0.9,"
    rows[10 - 2] = "bmc009,10.0.0.9,"
    rows[9 - 2] = "bmc010,10.0.0.8,"
    (folder / "rack.csv").write_text("name,address,via\n" + "\n".join(rows), encoding="utf-8")
    assert hosts(folder, "F/rack.csv").err == "kemffdc: " + told.replace("rack.csv", "F/rack.csv").rstrip() + " [exit code 2]\n"


# --- which hosts -----------------------------------------------------------------------------


def test_filters_take_what_the_judge_takes():
    rng = random.Random(7)
    everyone = NodeSet("bmc[001-060],rack[1-3]n[1-9]")
    for _ in range(8):
        some = NodeSet.fromlist(rng.sample(sorted(everyone), 30))
        without = NodeSet.fromlist(rng.sample(sorted(everyone), 20))
        ended = tool.run(["fleet", "hosts", "--hosts", str(everyone), "--limit", str(some), "--exclude", str(without),
                          "--json"])
        assert sorted(names(ended)) == sorted(some - without)


@pytest.mark.parametrize("of", [1, 2, 7])
def test_a_share_depends_on_the_name_alone(of):
    def share(name):
        return int.from_bytes(hashlib.sha256(name.encode()).digest()[:8], "big") % of + 1

    taken = []
    for number in range(1, of + 1):
        for expression in ("bmc[001-200]", "bmc[1-40],bmc[101-300]"):
            chosen = names(tool.run(["fleet", "hosts", "--hosts", expression, "--shard", f"{number}/{of}", "--json"]))
            assert all(share(name) == number for name in chosen)
        taken += chosen
    assert len(taken) == len(set(taken)) == 240


def test_what_no_host_is_left_of_is_told(folder):
    ended = hosts(folder, "F/rack.csv", "--credentials", "F/accounts.yaml", "--limit", "none*")
    assert (ended.code, ended.out) == (2, "")
    assert ended.err == "kemffdc: None of the 4 BMCs is chosen. [exit code 2]\n"


# --- files that are not as they should be ----------------------------------------------------


@pytest.mark.parametrize("table, said", [
    (b"name;via\r\nbmc1;redfish\r\n", ""),
    (b"\xef\xbb\xbfname\tvia\r\nbmc1\tredfish\r\n", ""),
    (b'name,via\n"bmc1","redfish"\n', ""),
    (b'name,"owner\'s\nname",via\nbmc1,"O, \n""o""",redfish\n', ""),
    (b"# a rack\nname,via\n\nbmc1,redfish", ""),
    (b"name,via\nbmc1,redfihs\n",
     'F/rack.csv:2: via: "redfihs" is none of auto, redfish, cim, ipmi and kcs. Did you mean redfish?'),
    (b'name,via\n"bmc1,redfish\n', "F/rack.csv:2: a quote that is never closed."),
    (b"name,via\nbmc1\0,redfish\n", "F/rack.csv:2: a NUL byte: save it as CSV in UTF-8."),
    ("näme".encode("latin-1") + b"\n", "F/rack.csv:1: bytes that are no UTF-8: save it as CSV in UTF-8."),
    ("name\nbmc1\n".encode("utf-16"), "F/rack.csv:1: a NUL byte: save it as CSV in UTF-8."),
    (b"name,via\nbmc1,red\x1b[31mfish\n", "F/rack.csv:2: via holds control bytes."),
    (b"", "F/rack.csv:1: no row: the first one names the columns, name, address, via ..."),
    (b"address\nbmc2\n", 'F/rack.csv:1: there is no column "name".'),
    (b"name\n../../etc\n",
     'F/rack.csv:2: name: "../../etc" holds other bytes than letters, digits, ".", "-", "_" and ":".'),
    (b"name,user\nbmc[1-2],a\nbmc2,b\n", 'F/rack.csv:3: name: "bmc2" stands in line 2 already.')])
def test_a_table_as_it_comes(folder, table, said):
    (folder / "rack.csv").write_bytes(table)
    ended = hosts(folder, "F/rack.csv", "--via", "redfish", "--json")
    if said:
        assert ended.code == 2
        assert ended.err == f"kemffdc: {said} [exit code 2]\n"
        assert ended.json["reason"].replace(str(folder), "F") == said
        assert ended.json["hosts"] == []
    else:
        assert names(ended) == ["bmc1"]


def test_an_unknown_column_is_told(folder):
    (folder / "rack.csv").write_text("name,Owner,Via\nbmc1,Olga,redfish\n", encoding="utf-8")
    ended = hosts(folder, "F/rack.csv", "--json")
    assert names(ended) == ["bmc1"]
    assert ended.err == ('kemffdc: F/rack.csv:1: column "Owner" is not known and is passed over.\n'
                         'kemffdc: F/rack.csv:1: column "Via" is not known and is passed over. Did you mean via?\n')
    assert len(ended.json["notes"]) == 2


def test_all_faults_are_told_and_their_number_is_bounded(folder):
    rows = "".join(f"bmc{number},pigeon,{number}:x\n" for number in range(300))
    (folder / "rack.csv").write_text("name,via,user\n" + rows, encoding="utf-8")
    ended = hosts(folder, "F/rack.csv")
    lines = ended.err.splitlines()
    assert ended.code == 2
    assert len(lines) == 21
    assert lines[0].startswith('kemffdc: F/rack.csv:2: via: "pigeon" is none of')
    assert lines[-1] == "and 280 more. [exit code 2]"


@pytest.mark.parametrize("make, said", [
    (lambda: "name\n" + "".join(f"bmc{n}\n" for n in range(1_000_000)), "more than 100000 hosts"),
    (lambda: "name\n" + "bmc[1-99999]\n" * 100_000, "more than 100000 hosts"),
    (lambda: "name\n" + "x" * (17 << 20), "is larger than 16 MiB."),
    (lambda: "name" + ",x" * 3_000_000 + "\nbmc1\n", "F/rack.csv:1: more than 1000 columns."),
    (lambda: "name\n" + "bmc1," * 1_000_000 + "\n", "1000001 fields, and 1 columns.")])
def test_a_table_without_end_is_refused_in_time(folder, make, said):
    (folder / "rack.csv").write_text(make(), encoding="utf-8")
    begun = time.monotonic()
    ended = hosts(folder, "F/rack.csv", "--json")
    assert time.monotonic() - begun < 10 * tool.SLOWNESS
    assert ended.code in (2, 8)
    assert said in ended.err
    assert len(ended.err) < 20_000


BOMB = "a: &a [x, x, x, x, x, x, x, x, x]\n" + "".join(
    f"{chr(98 + n)}: &{chr(98 + n)} [{', '.join([f'*{chr(97 + n)}'] * 9)}]\n" for n in range(12))


@pytest.mark.parametrize("text, said", [
    (BOMB, "F/fleet.yaml:1: a: unknown member."),
    ("hosts:\n" + "".join("  " + line + "\n" for line in BOMB.splitlines()), "F/fleet.yaml:"),
    ("hosts: &h {a: *h}\n", "F/fleet.yaml:"),
    ("[" * 100_000, "F/fleet.yaml:"),
    ("hosts: [a, a, b[, 'c\x01']\n", "F/fleet.yaml:"),
    ("a\x00b", "F/fleet.yaml:"),
    ("---\nhosts: a\n---\nhosts: b\n", "F/fleet.yaml:3: a second document begins here"),
    ("groups:\n  a: {via: tcp, hosts: x}\n  b: {port: 0, hosts: y}\n",
     "F/fleet.yaml:3: groups.b.port: \"0\" is no number from 1 to 65535."),
    ("hosts: {x: {password_command: [rm]}}\n", "F/fleet.yaml:1: hosts.x.password_command: unknown member."),
    ("hosts: {x: {password: hunter2}}\n", "hosts.x.password: a password does not belong in this file")])
def test_yaml_that_is_not_as_it_should_be(folder, text, said):
    (folder / "fleet.yaml").write_text(text, encoding="utf-8")
    ended = hosts(folder, "F/fleet.yaml")
    assert ended.code == 2
    assert said in ended.err
    assert "hunter2" not in ended.err


@pytest.mark.parametrize("make, said", [
    (lambda path: path.chmod(0o644), "can be read or written by others. Take that right away: chmod go= F/accounts.yaml"),
    (lambda path: path.unlink(), "does not exist."),
    (lambda path: (path.unlink(), path.mkdir()), "is not a plain file."),
    (lambda path: (path.unlink(), os.mkfifo(path, 0o600)), "is not a plain file."),
    (lambda path: path.write_bytes(b"x" * (2 << 20)), "is larger than 1 MiB.")])
def test_credentials_that_cannot_be_used_stop_all(folder, make, said):
    make(folder / "accounts.yaml")
    ended = hosts(folder, "F/rack.csv", "--credentials", "F/accounts.yaml")
    assert (ended.code, ended.out) == (8, "")
    assert ended.err == f"kemffdc: The credentials file F/accounts.yaml {said} [exit code 8]\n"


def test_a_link_to_credentials_is_judged_by_what_it_leads_to(folder):
    (folder / "link.yaml").symlink_to(folder / "accounts.yaml")
    assert hosts(folder, "F/rack.csv", "--credentials", "F/link.yaml").code == 0
    (folder / "accounts.yaml").chmod(0o640)
    assert hosts(folder, "F/rack.csv", "--credentials", "F/link.yaml").code == 8


@pytest.mark.parametrize("name", ["none.csv", "none.yaml", "."])
def test_an_inventory_that_cannot_be_read_is_told(folder, name):
    ended = hosts(folder, f"F/{name}")
    assert (ended.code, ended.out) == (8, "")
    assert ended.err.startswith("kemffdc: The inventory F/")


def test_a_fault_of_the_command_line_is_json_too(folder):
    ended = hosts(folder, "F/rack.csv", "--shard", "3/2", "--json")
    assert (ended.code, ended.json["outcome"], ended.json["command"]) == (2, "usage", "fleet hosts")


def test_a_near_miss_is_asked_about():
    ended = tool.run(["fleet", "hsots"])
    assert ended.code == 2
    assert ended.err == "kemffdc: Unknown command: fleet hsots. Did you mean hosts?\nTry 'kemffdc fleet --help'.\n"
