# SPDX-License-Identifier: Apache-2.0
"""Tab in real shells."""

import pathlib
import re
import shutil

import pexpect
import pytest

import tool

SCRIPTS = pathlib.Path(__file__).parents[2] / "packaging" / "completion"
PROMPT = "ready> "
ESCAPES = re.compile(r"\x1b(\[[0-9;?>=]*[A-Za-z]|[=>]|\][^\x07]*\x07|\([A-Z0])|[\r\x07]")


class Shell:
    """A shell on a terminal, with the tool in its PATH."""

    def __init__(self, name, folder):
        (folder / "bin").mkdir(parents=True)
        (folder / "bin" / "kemffdc").symlink_to(tool.TOOL)
        environment = {**tool.clean_environment(), "PATH": f"{folder}/bin:/usr/bin:/bin", "HOME": str(folder),
                       "XDG_STATE_HOME": str(folder / "state"),
                       "XDG_CONFIG_HOME": str(folder / "config"), "TERM": "dumb", "PS1": PROMPT, "LC_ALL": "C.UTF-8"}
        program, arguments, begin = {
            "bash": ("bash", ["--norc", "--noprofile", "-i"],
                     f". /usr/share/bash-completion/bash_completion; . {SCRIPTS}/kemffdc.bash; bind 'set bell-style none'"),
            "zsh": ("zsh", ["-f", "-i"],
                    f"fpath=({SCRIPTS} $fpath); autoload -Uz compinit; compinit -u -D; PROMPT='{PROMPT}'; unsetopt zle_bracketed_paste"),
            "fish": ("fish", ["--no-config", "-i"], f"source {SCRIPTS}/kemffdc.fish; function fish_prompt; echo '{PROMPT}'; end"),
        }[name]
        self.program = pexpect.spawn(shutil.which(program), arguments, env=environment, cwd=folder, encoding="utf-8",
                                     dimensions=(200, 200), timeout=20 * tool.SLOWNESS)
        self.program.delaybeforesend = 0.1
        self.program.sendline(begin + "; echo ALL''SET")
        self.program.expect("ALLSET")

    def tab(self, line, expected):
        """What stands on the terminal once `expected` does, after this line and Tab twice."""
        self.program.send(line + "\t\t")
        self.program.expect(expected)
        shown = self.program.before + self.program.after
        self.program.send("\x15")  # and the line is gone
        return ESCAPES.sub("", shown)

    def end(self):
        self.program.close(force=True)


@pytest.fixture(params=["bash", "zsh", "fish"])
def shell(request, tmp_path):
    if shutil.which(request.param) is None:
        pytest.skip(f"no {request.param} on this machine")
    shell = Shell(request.param, tmp_path)
    yield shell
    shell.end()


def test_commands_options_and_values_are_completed(shell):
    shell.tab("kemffdc col", "collect ")
    shell.tab("kemffdc collect --via red", "redfish ")
    shell.tab("kemffdc collect --log=fu", "--log=full")
    shell.tab("kemffdc collect --name-t", "--name-template ")


def test_files_and_folders_are_completed(shell, tmp_path):
    (tmp_path / "a-folder").mkdir()
    (tmp_path / "a-file.pem").touch()
    shell.tab("kemffdc collect --output a-", "a-folder/")
    shell.tab("kemffdc collect --ca-file a-fi", r"a-file\.pem ")


def test_hosts_of_the_configuration_and_the_history_are_completed(shell, bmc, tmp_path):
    (tmp_path / "config" / "kemffdc").mkdir(parents=True)
    (tmp_path / "config" / "kemffdc" / "kemffdc.conf").write_text('hosts:\n  "rack7-node3.example":\n    via: ipmi\n')
    ended = tool.run(tool.collect(bmc, tmp_path / "out"), password=bmc.password,
                     environment={"XDG_STATE_HOME": str(tmp_path / "state")})
    assert ended.code == 0, ended.err
    shell.tab("kemffdc check rack", r"rack7-node3\.example ")
    shell.tab("kemffdc check 127", r"127\.0\.0\.1 ")


def test_a_state_folder_that_is_broken_gives_nothing_and_says_nothing(tmp_path):
    (tmp_path / "kemffdc").mkdir()
    (tmp_path / "kemffdc" / "history.db").write_text("no database")
    ended = tool.run(["complete", "check", ""], environment={"XDG_STATE_HOME": str(tmp_path)})
    assert (ended.code, ended.out, ended.err) == (0, "", "")
