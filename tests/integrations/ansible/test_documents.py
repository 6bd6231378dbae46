# SPDX-License-Identifier: Apache-2.0
"""What the collection says of itself: it is readable, whole, and says what the tool says."""

import json
import re
import subprocess

import pytest
import yaml

import controller
import tool

MODULES = ["check", "collect"]
SCHEMA = json.loads((controller.ROOT / "docs/schema/kemffdc-1.json").read_text())
TYPES = {"string": "str", "integer": "int", "boolean": "bool", "array": "list", "object": "dict"}

# Options of the tool that a module gives it by itself, or has another name for.
OWN = {"json", "events", "password-file", "state-dir", "wait", "log-level", "log-file"}


def documented(ansible, module):
    command = ["ansible-doc", "-t", "module", "--json", f"varnex.ffdc.{module}"]
    done = subprocess.run(command, env=ansible.environment(), capture_output=True, text=True, timeout=60,
                          check=False)
    assert done.returncode == 0, done.stderr
    return json.loads(done.stdout)[f"varnex.ffdc.{module}"]


def options_of_the_tool(command):
    words = subprocess.run([tool.TOOL, "help", *command.split()], capture_output=True, text=True, timeout=60,
                           check=True).stdout
    return set(re.findall(r"^  (?:-., )?--([a-z-]+)", words, re.MULTILINE)) - OWN


@pytest.mark.parametrize("module", MODULES)
def test_a_module_has_the_options_of_its_command(ansible, module):
    options = set(documented(ansible, module)["doc"]["options"])

    there = {name.replace("_", "-") for name in options}
    missing = {o for o in options_of_the_tool(module) - there if not o.startswith("export-")}
    assert missing == set()
    known = options_of_the_tool(module) | OWN | {"host", "password", "executable", "max-age", "export"}
    assert there - known == set()


def test_the_module_for_a_fleet_has_the_options_of_fleets(ansible):
    options = {name.replace("_", "-") for name in documented(ansible, "fleet")["doc"]["options"]}

    own = {"executable", "state-dir", "inventory", "output", "settings", "command", "max-age", "allow-partial"}
    assert options - own == options_of_the_tool("fleet collect") - options_of_the_tool("collect")


def test_what_collect_returns_is_what_the_schema_has(ansible):
    told = documented(ansible, "collect")["return"]["result"]["contains"]

    assert set(told) == set(SCHEMA["$defs"]["run"]["properties"])
    for name, member in SCHEMA["$defs"]["run"]["properties"].items():
        if isinstance(member.get("type"), str):
            assert told[name]["type"] == TYPES[member["type"]], name


@pytest.mark.parametrize("module", [*MODULES, "fleet"])
def test_examples_are_tasks(ansible, tmp_path, module):
    examples = yaml.safe_load(documented(ansible, module)["examples"])

    play = tmp_path / "play.json"
    play.write_text(json.dumps([{"hosts": "localhost", "tasks": examples}]))
    done = subprocess.run(["ansible-playbook", "--syntax-check", str(play)], env=ansible.environment(),
                          capture_output=True, text=True, timeout=60, check=False)

    assert done.returncode == 0, done.stderr


def test_the_role_and_the_playbooks_are_found(ansible):
    def run(*command):
        done = subprocess.run(command, env=ansible.environment(), capture_output=True, text=True, timeout=60,
                              check=False)
        assert done.returncode == 0, done.stderr
        return done.stdout

    role = json.loads(run("ansible-doc", "-t", "role", "--json", "varnex.ffdc.station"))
    told = set(role["varnex.ffdc.station"]["entry_points"]["main"]["options"])
    assert told == set(yaml.safe_load((controller.COLLECTION / "roles/station/defaults/main.yml").read_text()))
    for name in ("one_station", "three_sites"):
        run("ansible-playbook", "--syntax-check", f"varnex.ffdc.{name}")


def test_the_collection_has_the_version_of_the_tool():
    galaxy = yaml.safe_load((controller.COLLECTION / "galaxy.yml").read_text())
    header = (controller.ROOT / "include" / "varnex" / "version.h").read_text()

    assert re.findall(r"^#define VARNEX_FFDC_VERSION_[A-Z]+ (\d+)$", header, re.M) == galaxy["version"].split(".")


def test_nothing_but_the_collection_is_packed(collections):
    packed = json.loads((collections / "ansible_collections/varnex/ffdc/FILES.json").read_text())

    files = {entry["name"] for entry in packed["files"] if entry["ftype"] == "file"}
    there = {
        str(path.relative_to(controller.COLLECTION))
        for path in controller.COLLECTION.rglob("*")
        if path.is_file() and "__pycache__" not in path.parts
    }
    assert files == there - {"galaxy.yml"}
