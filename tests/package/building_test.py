# SPDX-License-Identifier: Apache-2.0
"""The library in other people's builds: static, as a part of a project, in folders with odd names."""

import hashlib
import json
import shlex
import shutil
import subprocess

import pytest

from commands import CXX, ENVIRONMENT, ROOT, configured, run
from conftest import parent
from emulated_bmc import emulated_bmc

COLLECT = ROOT / "examples" / "collect.cpp"
QUICK = "{redfish: {task_states: [Completed]}}"

def collect(host, folder):
    with emulated_bmc(folder, QUICK) as bmc:
        archive = folder / "ffdc.tar.gz"
        run(host, bmc["address"], bmc["redfish"]["port"], bmc["user"], archive, input=bmc["password"] + "\n")
        assert hashlib.sha256(archive.read_bytes()).hexdigest() == bmc["archives"]["mini"]["sha256"]


def targets(folder):
    return {line.split(":")[0] for line in run("ninja", "-C", folder, "-t", "targets", "all").stdout.splitlines()}


def files(folder):
    return {str(file.relative_to(folder)): file.read_bytes() for file in folder.rglob("*") if file.is_file()}


def test_builds_in_two_folders_make_the_same_files(built_in_an_odd_folder, built_elsewhere):
    """Sources and build lie elsewhere, at another depth, and what is made has debug information."""
    library = "lib/libvarnexffdc.so.1.0.0"
    odd, plain = files(built_in_an_odd_folder), files(built_elsewhere)
    assert library in plain and ".debug_line" in run("readelf", "-SW", built_elsewhere / library).stdout

    assert odd.keys() == plain.keys()
    assert [name for name in plain if plain[name] != odd[name]] == []


def test_a_host_brings_its_own_platform_library(built_elsewhere, own_platform, tmp_path):
    """Same sources, another library behind the platform's headers: nothing of ours is linked."""
    lib = shutil.copytree(built_elsewhere / "lib", tmp_path / "lib", symlinks=True)
    shutil.copy(own_platform, lib)  # the library looks for it beside itself
    run(CXX, "-std=c++11", COLLECT, "-o", tmp_path / "collect", f"-I{built_elsewhere}/include",
        f"-L{lib}", "-lvarnexffdc", f"-Wl,-rpath,{lib}")

    with emulated_bmc(tmp_path, QUICK) as bmc:
        host = run(tmp_path / "collect", bmc["address"], bmc["redfish"]["port"], bmc["user"],
                   tmp_path / "ffdc.tar.gz", input=bmc["password"] + "\n")

    assert (tmp_path / "ffdc.tar.gz").read_text() == "fetched by another platform\n"
    assert "other log 4 src/module/kvs/ffdc/ffdc: Calling constructor of KEMFfdc" in host.stderr
    assert not list(built_elsewhere.rglob("libvarnexplatform*"))
    assert "libvarnexplatform" not in run("ldd", tmp_path / "collect").stdout


def test_a_part_of_a_project_is_the_library_and_nothing_else(tmp_path):
    folder = parent(tmp_path)
    run("cmake", "-S", folder, "-B", folder / "out", "-G", "Ninja", f"-DCMAKE_CXX_COMPILER={CXX}")
    made = targets(folder / "out")

    assert {"libvarnexffdc.so", "libvarnexplatform.so", "host"} <= made  # shared, as by itself
    assert not {"kemffdc", "unit_ffdc", "varnex_manual_pages", "test"} & made
    assert configured("CMAKE_BUILD_TYPE:STRING=", folder / "out")
    lines = [entry["command"] for entry in
             json.loads((folder / "out" / "compile_commands.json").read_text(encoding="utf-8"))]
    assert any(" -Wall" in line for line in lines)
    assert [line for line in lines if "-Werror" in line] == []
    assert not (folder / "out" / "_deps" / "varnexffdc-build" / "packaging").exists()


def test_a_project_links_its_static_part(static, tmp_path):
    collect(static / "out" / "host", tmp_path)
    assert "varnex" not in run("ldd", static / "out" / "host").stdout


def test_a_host_finds_static_libraries_with_cmake(static, tmp_path):
    run("cmake", "-S", ROOT / "examples", "-B", tmp_path / "out", f"-DCMAKE_PREFIX_PATH={static}/installed",
        f"-DCMAKE_CXX_COMPILER={CXX}")
    run("cmake", "--build", tmp_path / "out", "--target", "collect")

    collect(tmp_path / "out" / "collect", tmp_path)
    assert not list((static / "installed").rglob("*varnex*.so.*"))


def static_flags(static, package):
    said = run("pkg-config", "--static", "--cflags", "--libs", package,
               environment={"PKG_CONFIG_PATH": str(static / "installed" / "lib" / "pkgconfig")})
    return shlex.split(said.stdout)


def test_a_host_finds_static_libraries_with_pkg_config(static, tmp_path):
    run(CXX, "-std=c++11", COLLECT, "-o", tmp_path / "collect", *static_flags(static, "varnex-ffdc"))

    collect(tmp_path / "collect", tmp_path)


@pytest.mark.skipif(not configured("VARNEX_IPMI:BOOL=ON"), reason="built with -DVARNEX_IPMI=OFF")
def test_a_static_library_looks_for_the_ipmi_module_where_it_is_installed(static, tmp_path):
    run(CXX, "-std=c++17", ROOT / "tests" / "platform-ipmi" / "ipmi_once.cpp", "-o", tmp_path / "host",
        *static_flags(static, "varnex-platform"))
    module = static / "installed" / "lib" / "varnex-ffdc" / "1" / "libvarnexplatform-ipmi.so"

    def connect():
        with emulated_bmc(tmp_path, "{ipmi: {}}") as bmc:
            return subprocess.run(
                [tmp_path / "host", bmc["address"], str(bmc["ipmi"]["port"]), bmc["user"], bmc["password"], "17"],
                capture_output=True, text=True, timeout=60, check=False, env=ENVIRONMENT)

    assert connect().stdout.startswith("connect 0\n")
    module.unlink()
    assert f"the module {module} is missing" in connect().stderr


def test_static_libraries_are_not_made_with_a_foreign_cim_client(tmp_path):
    refused = subprocess.run(
        ["cmake", "-S", ROOT, "-B", tmp_path, "-DBUILD_SHARED_LIBS=OFF", "-DVARNEX_CIM=openpegasus",
         "-DVARNEX_BUILD_TESTS=OFF", "-DVARNEX_BUILD_CLI=OFF", f"-DCMAKE_CXX_COMPILER={CXX}"],
        capture_output=True, text=True, timeout=300, check=False, env=ENVIRONMENT)

    assert refused.returncode != 0
    assert "use -DVARNEX_CIM=builtin" in refused.stderr
