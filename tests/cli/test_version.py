# SPDX-License-Identifier: Apache-2.0
"""What `kemffdc --version` says, held against what is on this machine."""

import pathlib
import re
import shutil
import subprocess

import pytest

import tool

MODULE = pathlib.Path("varnex-ffdc", "1", "libvarnexplatform-ipmi.so")  # below the folder of the libraries


def said(**environment):
    """The first line, and the others by their names."""
    ended = subprocess.run([tool.TOOL, "--version"], capture_output=True, text=True, timeout=60, check=False,
                           env={**tool.run_environment(), **environment})
    assert (ended.returncode, ended.stderr) == (0, "")
    first, *others = ended.stdout.splitlines()
    return first, dict(re.split(r": +", line, maxsplit=1) for line in others)


def output(*command):
    return subprocess.run(command, capture_output=True, text=True, timeout=60, check=True).stdout.strip()


def of_package(name):
    """The version of a library's package, without its epoch and what Debian adds."""
    return re.sub(r"^\d+:|[-+].*$", "", output("dpkg-query", "-W", "-f", "${Version}", name))


def mapped_libraries():
    """Of the tool, by the file that the loader takes: {"libssh": path}."""
    lines = re.findall(r"(\S+?)\.so\S* => (\S+)", output("ldd", tool.TOOL))
    return {name: pathlib.Path(path).resolve() for name, path in lines}


def test_the_first_line_is_the_version_alone():
    assert said()[0] == "kemffdc 1.0.0"


def test_the_page_on_packages_shows_what_is_said():
    """Names and order of its lines; what stands in them is another machine's."""
    page = (tool.ROOT / "docs/packages.md").read_text(encoding="utf-8")
    shown = page.partition("`kemffdc --version` tells, below its first line:\n\n")[2].partition("\n\n")[0].splitlines()
    others = said()[1]
    assert [line.strip().partition(":")[0] for line in shown] == list(others)
    assert re.sub(r" [\d.]+", "", shown[-1].partition(":")[2].strip()) == re.sub(r" [\d.]+", "", others["libraries"])


def test_the_commit_is_one_of_this_tree():
    """That of the last build; others may have come since."""
    if subprocess.run(["git", "-C", tool.ROOT, "rev-parse", "HEAD"], capture_output=True, check=False).returncode != 0:
        pytest.skip("this tree has no repository")
    told = re.fullmatch(r"commit ([0-9a-f]{12})", said()[1]["built from"])[1]
    assert output("git", "-C", tool.ROOT, "cat-file", "-t", told) == "commit"


def git(folder, *words):
    return output("git", "-C", folder, "-c", "user.name=A", "-c", "user.email=a@example.org", "-c", "commit.gpgsign=false", *words)


def built_from(tree):
    """What a build of the tree would say."""
    source = tree.parent / "BuiltFrom.cpp"
    output("cmake", f"-DSOURCE={tree}", "-DVERSION=1.2.3", f"-DOUTPUT={source}", "-P", tree / "cmake" / "BuiltFrom.cmake")
    return re.search(r'kBuiltFrom\[\] = "(.*)";', source.read_text(encoding="utf-8"))[1]


@pytest.fixture
def tree(tmp_path):
    """A repository with one commit, of what makes the text."""
    tree = tmp_path / "tree"
    (tree / "cmake").mkdir(parents=True)
    for name in ("cmake/BuiltFrom.cmake", ".gitattributes"):
        shutil.copy(tool.ROOT / name, tree / name)
    git(tmp_path, "init", "-q", tree)
    git(tree, "add", "-A")
    git(tree, "commit", "-q", "-m", "one")
    return tree


def test_a_repository_an_archive_and_bare_sources_tell_what_they_know(tree, tmp_path):
    commit = git(tree, "rev-parse", "HEAD")[:12]
    assert built_from(tree) == f"commit {commit}"
    subprocess.run(f"git -C {tree} archive --prefix=archive/ HEAD | tar -x -C {tmp_path}", shell=True, check=True, timeout=60)
    assert built_from(tmp_path / "archive") == f"commit {commit}"
    shutil.rmtree(tree / ".git")
    assert built_from(tree) == "a package of version 1.2.3, commit unknown"
    (tree / "debian").mkdir()
    (tree / "debian" / "changelog").write_text("varnex-ffdc (1.2.3-4) unstable; urgency=medium\n", encoding="utf-8")
    assert built_from(tree) == "the Debian package 1.2.3-4, commit unknown"


def test_a_repository_that_the_tree_was_copied_into_has_no_say(tree, tmp_path):
    shutil.rmtree(tree / ".git")
    git(tmp_path, "init", "-q", tmp_path)
    git(tmp_path, "add", "-A")
    git(tmp_path, "commit", "-q", "-m", "somebody else's")
    assert built_from(tree) == "a package of version 1.2.3, commit unknown"


def test_the_text_is_written_only_when_it_changes(tree):
    built_from(tree)
    source = tree.parent / "BuiltFrom.cpp"
    before = source.stat().st_mtime_ns
    built_from(tree)
    assert source.stat().st_mtime_ns == before
    git(tree, "commit", "-q", "--allow-empty", "-m", "two")
    built_from(tree)
    assert source.stat().st_mtime_ns > before


def test_channels_are_those_of_the_help():
    named = re.findall(r"^  (\w+) ", tool.run(["--help"]).out.partition("Channels (--via):\n")[2].partition("\n\n")[0],
                       re.MULTILINE)
    assert said()[1]["channels"].split(", ") == named
    assert {"redfish", "cim", "ipmi"} <= set(named)


def test_the_client_for_cim_is_the_one_that_is_linked():
    linked = any("pegclient" in name for name in mapped_libraries())
    assert said()[1]["CIM client"] == ("OpenPegasus" if linked else "built in")


def test_libraries_are_those_that_the_loader_takes():
    told = dict(word.rsplit(" ", 1) for word in said()[1]["libraries"].split(", "))
    mapped = mapped_libraries()
    assert set(told) == {"libcurl", "OpenSSL", "libssh", "libarchive", "SQLite", "Boost"}
    for name, file in (("OpenSSL", "libcrypto"), ("libssh", "libssh"), ("libarchive", "libarchive"), ("SQLite", "libsqlite3"),
                       ("libcurl", "libcurl")):
        package = output("dpkg-query", "-S", mapped[file]).partition(":")[0]
        assert told[name] == of_package(package), name
    assert mapped["libboost_json"].name.endswith(f".so.{told['Boost']}.0")


def test_the_module_for_ipmi_tells_its_licence_and_library():
    assert said()[1]["IPMI module"] == f"FreeIPMI {of_package('libfreeipmi17')}, under GPL-3.0-or-later as a whole"


def test_a_missing_module_is_no_failure_and_is_told(tmp_path):
    library = mapped_libraries()["libvarnexplatform"]
    shutil.copy(library, tmp_path / "libvarnexplatform.so.1")
    module = said(LD_LIBRARY_PATH=str(tmp_path))[1]["IPMI module"]
    assert module.startswith(f"IPMI is not available: the module {tmp_path / MODULE} is missing; ")
