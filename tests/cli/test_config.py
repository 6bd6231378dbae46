# SPDX-License-Identifier: Apache-2.0
"""kemffdc.conf in whole runs, and its documentation beside what the tool and the sources say."""

import json
import pathlib
import re
import signal
import subprocess
import time

import pytest

import tool

PAGE = (tool.ROOT / "docs" / "configuration.md").read_text(encoding="utf-8")
CHANNELS = {"redfish": [], "cim": ["--export-uri", "sftp://192.0.2.1/"], "ipmi": [], "kcs": []}


def rows(head):
    """The first cells of the table with that first heading, without their back-ticks."""
    lines = PAGE.splitlines()
    begin = next(number for number, line in enumerate(lines) if line.startswith(f"| {head} |"))
    for line in lines[begin + 2:]:
        if not line.startswith("|"):
            return
        yield [re.findall(r"`([^`]+)`", cell) for cell in line.split("|")[1:-1]]


@pytest.fixture(name="home")
def home_(tmp_path):
    folder = tmp_path / "config" / "kemffdc"
    folder.mkdir(parents=True)
    return tmp_path


def configure(home, text):
    (home / "config" / "kemffdc" / "kemffdc.conf").write_text(text, encoding="utf-8")
    return {"XDG_CONFIG_HOME": str(home / "config")}


def script(home, *lines):
    path = home / "print-password"
    path.write_text("\n".join(["#!/bin/sh", *lines, ""]), encoding="utf-8")
    path.chmod(0o700)
    return path


def lives(process):
    """Not so one that has ended and that nobody has waited for."""
    try:
        return pathlib.Path(f"/proc/{process}/cmdline").read_bytes() != b""
    except FileNotFoundError:
        return False


# --- whole runs -------------------------------------------------------------------------------


def test_a_run_takes_everything_from_the_file(bmc, home):
    command = script(home, 'echo "$1 $2 $KEMFFDC_PASSWORD" > "$0.seen"', f"printf '%s\\nsecond line\\n' '{bmc.password}'")
    environment = configure(home, f"""
defaults:
  via: ipmi
  user: nobody
hosts:
  "127.*":
    via: redfish
    port: {bmc.port}
    user: admin
    password_command: ["{command}", "{{host}}", "bmc of {{user}};"]
    output: {home}
""")
    ended = tool.run(["collect", bmc.address, "--json", "--log-level", "4"], environment=environment)
    assert ended.code == 0, ended.err
    assert ended.json["sha256"] == bmc.ready["archive"]["sha256"]
    assert pathlib.Path(f"{command}.seen").read_text(encoding="utf-8") == f"{bmc.address} bmc of admin; \n"
    assert bmc.password not in ended.out + ended.err
    assert "second line" not in ended.out + ended.err


def test_a_password_command_that_fails_ends_the_run_before_the_bmc_is_asked(bmc, home):
    command = script(home, "echo hunter2", "exit 4")
    environment = configure(home, f"defaults: {{via: redfish, password_command: [\"{command}\"]}}\n")
    ended = tool.run(["check", bmc.address, "--port", str(bmc.port)], environment=environment)
    assert (ended.code, ended.out) == (8, "")
    assert ended.err == f"kemffdc: The password command {command} ended with exit code 4. [exit code 8]\n"
    assert bmc.requests() == []


def test_a_password_command_that_hangs_ends_with_the_run(bmc, home):
    command = script(home, 'echo $$ > "$0.seen"', "exec sleep 100")
    environment = configure(home, f"defaults: {{via: redfish, password_command: [\"{command}\"]}}\n")
    running = tool.Running(["check", bmc.address, "--port", str(bmc.port)], environment=environment)
    seen = pathlib.Path(f"{command}.seen")
    until = time.monotonic() + 20 * tool.SLOWNESS
    while not (seen.exists() and seen.read_text(encoding="utf-8")) and time.monotonic() < until:
        time.sleep(0.05)
    assert running.interrupt(signal.SIGTERM).code == 130
    assert not lives(int(seen.read_text(encoding="utf-8")))
    assert bmc.requests() == []


def test_a_password_command_has_no_more_time_than_the_run(bmc, home):
    command = script(home, "exec sleep 100")
    environment = configure(home, f"defaults: {{via: redfish, deadline: 2s, password_command: [\"{command}\"]}}\n")
    ended = tool.run(["check", bmc.address, "--port", str(bmc.port)], environment=environment, seconds=20)
    assert ended.code in (6, 8), ended.err  # whichever of the two bounds is noticed first
    assert bmc.requests() == []


def test_the_machines_file_is_read_and_comes_behind_the_users(home):
    """In a mount namespace of its own, with another /etc."""
    etc = home / "etc" / "kemffdc"
    etc.mkdir(parents=True)
    (etc / "kemffdc.conf").write_text("defaults: {via: ipmi, user: machine, cipher_suite: 3}\n", encoding="utf-8")
    environment = {**tool.clean_environment(), **configure(home, "defaults: {user: mine}\n")}
    inside = ["unshare", "--user", "--map-root-user", "--mount", "sh", "-c",
              f'mount --bind "{etc.parent}" /etc && exec "$0" config bmc --json', tool.TOOL]
    ended = subprocess.run(inside, env=environment, capture_output=True, text=True, timeout=60, check=False)
    if ended.returncode != 0 and not ended.stdout:
        pytest.skip(f"no namespaces here: {ended.stderr.strip()}")
    settings = {one["name"]: one for one in json.loads(ended.stdout)["settings"]}
    assert (settings["user"]["value"], settings["user"]["origin"]) == ("mine", "user-file")
    assert (settings["cipher_suite"]["value"], settings["cipher_suite"]["origin"]) == ("3", "system-file")
    assert settings["cipher_suite"]["place"] == "/etc/kemffdc/kemffdc.conf:1"


def test_a_mistake_in_the_file_ends_with_two(home):
    environment = configure(home, "defaults:\n  usr: x\n")
    ended = tool.run(["check", "192.0.2.1", "--via", "redfish"], environment=environment)
    path = home / "config" / "kemffdc" / "kemffdc.conf"
    assert (ended.code, ended.out) == (2, "")
    assert ended.err == f"kemffdc: {path}:2: defaults.usr: unknown member. Did you mean user?\n"
    assert tool.run(["collect", "--help"], environment=environment).code == 0


# --- the page ---------------------------------------------------------------------------------


def test_the_page_names_every_member_and_its_option():
    members = set()
    for channel, more in CHANNELS.items():
        ended = tool.run(["config", "--via", channel, "--json", *more])
        members |= {one["name"] for one in ended.json["settings"] if one["origin"] == "default"}
    members |= {"via", "export.uri"}
    documented = {cells[0][0]: cells[1] for cells in rows("Member")}
    assert sorted(members - set(documented)) == [], "members without a row in docs/configuration.md"
    assert sorted(set(documented) - members) == [], "rows of docs/configuration.md without a member"
    for member, option in documented.items():
        own = "--" + member.replace(".", "-").replace("_", "-")
        assert option == ([] if member.endswith("password_command") else [own]), member


def test_the_example_of_the_page_is_understood(home):
    text = re.search(r"```yaml\n(.*?)```", PAGE, re.DOTALL).group(1)
    environment = configure(home, text)
    for host, channel in (("a.lab.example", "redfish"), ("10.2.3.4", "ipmi"), ("old7.example", "cim")):
        ended = tool.run(["config", host, "--json"], environment=environment)
        assert (ended.code, ended.json["channel"]) == (0, channel), ended.err


SOURCES = [path for folder in ("cli", "platform/src", "platform/ipmi", "platform/pegasus", "src")
           for path in sorted((tool.ROOT / folder).rglob("*")) if path.suffix in (".cpp", ".h")]
OWN_NAMES = re.compile(r'"((?:VARNEX|KEMFFDC|XDG)_[A-Z_]*[A-Z]|HOME|TERM|[a-z]+_proxy|[A-Z]+_PROXY)=?"')
READS = re.compile(r"\b(?:secure_)?getenv\(\s*([^)]*)\)")
INTEGERS = re.compile(r'GetGlobalConfigValue\(\s*"([A-Z_]+)"')
# Where the name is a parameter; their callers give it as a text of its own.
PASSED_ON = {"cli/Settle.cpp", "cli/UserFolders.cpp", "cli/http/Transport.cpp", "cli/terminal/Secret.cpp",
             "platform/src/GlobalConfig.cpp", "platform/src/UsbLanCfg.cpp", "platform/src/environment.h"}


def test_the_page_names_every_variable_of_the_sources():
    read = {"HOME"}
    for path in SOURCES:
        text = path.read_text(encoding="utf-8")
        name = path.relative_to(tool.ROOT).as_posix()
        read |= set(OWN_NAMES.findall(text))
        read |= {f"VARNEX_{key}" for key in INTEGERS.findall(text)}
        for argument in READS.findall(text):
            assert argument.startswith('"') or name in PASSED_ON, f"{name} reads {argument}: which variable is that?"
    documented = {name for cells in rows("Variable") for name in cells[0]}
    assert sorted(read - documented) == [], "variables without a row in docs/configuration.md"
    assert sorted(documented - read) == [], "rows of docs/configuration.md that nothing reads"


def test_readme_and_help_lead_to_the_page():
    assert "(docs/configuration.md)" in (tool.ROOT / "README.md").read_text(encoding="utf-8")
    assert "kemffdc help configuration" in tool.run(["--help"]).out
    text = tool.run(["help", "configuration"]).out
    for word in ("docs/configuration.md", "~/.config/kemffdc/kemffdc.conf", "/etc/kemffdc/kemffdc.conf", "kemffdc config HOST"):
        assert word in text


def test_readme_and_help_know_the_same_exit_codes():
    readme = (tool.ROOT / "README.md").read_text(encoding="utf-8")
    codes = re.findall(r"^  (\d+) +\S", tool.run(["help", "exit-codes"]).out, re.MULTILINE)
    assert codes == re.findall(r"^\| (\d+) \|", readme, re.MULTILINE)
