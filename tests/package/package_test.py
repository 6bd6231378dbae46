# SPDX-License-Identifier: Apache-2.0
"""The installed package in the hands of a foreign project."""

import hashlib
import pathlib
import re
import shutil
import socket
import subprocess
import time

import pytest

from commands import BUILD, CXX, ENVIRONMENT, ROOT, run
from emulated_bmc import emulated_bmc, emulated_fleet

HERE = pathlib.Path(__file__).resolve().parent
QUICK = "{redfish: {task_states: [Completed]}}"
STRICT = ["-Wall", "-Wextra", "-Wpedantic", "-Werror"]


def libraries(prefix):
    return next(prefix.rglob("libvarnexffdc.so")).parent


def pkg_config(prefix, *words):
    path = str(libraries(prefix) / "pkgconfig")
    said = run("pkg-config", *words, environment={"PKG_CONFIG_PATH": path}).stdout
    return said.split()


def compile_with_pkg_config(prefix, source, program, *more):
    flags = pkg_config(prefix, "--cflags", "--libs", "varnex-ffdc")
    run(CXX, *STRICT, source, "-o", program, *flags, f"-Wl,-rpath,{libraries(prefix)}", *more)


HOST = """
cmake_minimum_required(VERSION 3.16)
project(Host LANGUAGES CXX)
find_package(VarnexFfdc {asked} REQUIRED)
add_executable(host {source})
target_compile_features(host PRIVATE cxx_std_11)
target_link_libraries(host PRIVATE {linked})
{more}
"""


def configure_host(folder, prefix, *settings, asked="1.0", source=ROOT / "examples" / "collect.cpp",
                   linked="Varnex::ffdc", more=""):
    """The finished cmake, whatever it said."""
    (folder / "CMakeLists.txt").write_text(
        HOST.format(asked=asked, source=source, linked=linked, more=more), encoding="utf-8")
    return subprocess.run(
        ["cmake", "-S", folder, "-B", folder / "out", f"-DCMAKE_PREFIX_PATH={prefix}",
         f"-DCMAKE_CXX_COMPILER={CXX}", *settings],
        capture_output=True, text=True, timeout=300, check=False, env=ENVIRONMENT)


def collect(host, bmc, archive):
    """What the host printed; it has fetched the small archive."""
    said = run(host, bmc["address"], bmc["redfish"]["port"], bmc["user"], archive,
               input=bmc["password"] + "\n").stdout
    assert hashlib.sha256(archive.read_bytes()).hexdigest() == bmc["archives"]["mini"]["sha256"]
    return said


def exported(library, version):
    """One line per symbol of this version: kind, name as the linker sees it, name as a person reads it."""
    listed = run("nm", "-D", "--defined-only", "--format=posix", library).stdout
    symbols = [line.split()[:2] for line in listed.splitlines()]
    symbols.remove([version, "A"])  # the version itself
    names = [name.partition(f"@@{version}") for name, _ in symbols]
    assert all(mark and not rest for _, mark, rest in names), listed
    readable = run("c++filt", input="\n".join(name for name, _, _ in names)).stdout.splitlines()
    return sorted(f"{kind} {name}  {plain}"
                  for (name, _, _), (_, kind), plain in zip(names, symbols, readable, strict=True))


@pytest.fixture(scope="module")
def examples(prefix, tmp_path_factory):
    """The programs of examples/, built with the installed package."""
    folder = tmp_path_factory.mktemp("examples")
    run("cmake", "-S", ROOT / "examples", "-B", folder, f"-DCMAKE_PREFIX_PATH={prefix}",
        f"-DCMAKE_CXX_COMPILER={CXX}", f"-DCMAKE_CXX_FLAGS={' '.join(STRICT)}")
    run("cmake", "--build", folder, "-j2")
    return folder


def test_a_host_finds_the_package_with_cmake(examples, tmp_path):
    with emulated_bmc(tmp_path, QUICK) as bmc:
        collect(examples / "collect", bmc, tmp_path / "ffdc.tar.gz")


def test_a_host_has_a_log_of_its_own_and_shows_how_far_a_download_is(examples, tmp_path):
    archive = tmp_path / "ffdc.tar.gz"
    with emulated_bmc(tmp_path, QUICK) as bmc:
        ended = run(examples / "progress", bmc["address"], bmc["redfish"]["port"], bmc["user"], archive,
                    input=bmc["password"] + "\n")

    size = archive.stat().st_size
    steps = ended.stdout.splitlines()  # each begins with a carriage return
    assert f"{size} of {size} bytes" in steps
    assert steps[-1] == f"SHA-256 {hashlib.sha256(archive.read_bytes()).hexdigest()}, {size} bytes"
    assert "host 3: " in ended.stderr
    assert [line for line in ended.stderr.splitlines() if not re.match("host [123]: ", line)] == []
    assert bmc["password"] not in ended.stderr
    token = re.search(r"X-Auth-Token: *(\S+)", ended.stderr)
    assert token and token[1] == "*" * 10


def test_a_host_collects_from_ten_bmcs_at_the_same_time(examples, tmp_path):
    with emulated_fleet(tmp_path, "--count", "10", "--gathering", "2") as fleet:
        bmcs = [(bmc["address"], bmc["port"], fleet["user"], fleet["password"], tmp_path / bmc["name"])
                for bmc in fleet["bmcs"]]
        lines = "".join(" ".join(map(str, bmc)) + "\n" for bmc in bmcs)
        began = time.monotonic()
        said = run(examples / "ten_bmcs", input=lines).stdout
        seconds = time.monotonic() - began

    assert said == "".join(f"{address}: {file}\n" for address, _, _, _, file in bmcs)
    assert len({file.read_bytes() for *_, file in bmcs}) == 10
    assert seconds < 15  # one after the other would take 20


def test_a_host_finds_the_package_with_pkg_config(prefix, tmp_path):
    compile_with_pkg_config(prefix, ROOT / "examples" / "collect.cpp", tmp_path / "collect",
                            "-std=c++11")

    with emulated_bmc(tmp_path, QUICK) as bmc:
        collect(tmp_path / "collect", bmc, tmp_path / "ffdc.tar.gz")


def test_a_host_uses_the_platforms_own_services(prefix, tmp_path):
    masks = HERE / "hosts" / "masks.cpp"
    configured = configure_host(tmp_path, prefix, source=masks, linked="Varnex::platform")
    assert configured.returncode == 0, configured.stderr
    run("cmake", "--build", tmp_path / "out")
    flags = pkg_config(prefix, "--cflags", "--libs", "varnex-platform")
    run(CXX, "-std=c++11", masks, "-o", tmp_path / "host", *flags, f"-Wl,-rpath,{libraries(prefix)}")

    assert "secret" not in run(tmp_path / "out" / "host").stdout
    assert "secret" not in run(tmp_path / "host").stdout


NO_CURL = "-DCMAKE_DISABLE_FIND_PACKAGE_CURL=ON"


@pytest.mark.parametrize("asked", ["1.0", "1.0 COMPONENTS ffdc"])
def test_the_library_alone_needs_no_headers_of_libcurl(prefix, asked, tmp_path):
    configured = configure_host(tmp_path, prefix, NO_CURL, asked=asked)
    assert configured.returncode == 0, configured.stderr

    run("cmake", "--build", tmp_path / "out")


def test_a_host_asks_for_each_component_by_name(prefix, tmp_path):
    module = "file(GENERATE OUTPUT module CONTENT $<TARGET_FILE:Varnex::ipmi>)"
    configured = configure_host(tmp_path, prefix, asked="COMPONENTS ffdc platform ipmi",
                                linked="Varnex::platform", more=module)
    assert configured.returncode == 0, configured.stderr

    named = pathlib.Path((tmp_path / "out" / "module").read_text(encoding="utf-8"))
    assert named == libraries(prefix) / "varnex-ffdc" / "1" / "libvarnexplatform-ipmi.so"
    assert named.is_file()


@pytest.mark.parametrize("component,why", [
    ("platform", "No component platform: it needs libcurl's headers"),
    ("ipmi", "No component ipmi: there is no "),
    ("redfish", "No component redfish: there are ffdc, platform and ipmi."),
])
def test_a_component_that_is_not_there_is_named_with_the_reason(prefix, component, why, tmp_path):
    without = shutil.copytree(prefix / "lib", tmp_path / "without" / "lib", symlinks=True).parent
    shutil.rmtree(without / "lib" / "varnex-ffdc")
    configured = configure_host(tmp_path, without, NO_CURL, asked=f"COMPONENTS ffdc {component}")

    assert configured.returncode != 0
    assert why in " ".join(configured.stderr.split()), configured.stderr


def test_a_component_that_is_optional_may_be_missing(prefix, tmp_path):
    configured = configure_host(tmp_path, prefix, NO_CURL,
                                asked="COMPONENTS ffdc OPTIONAL_COMPONENTS platform",
                                more="message(STATUS \"found: ${VarnexFfdc_platform_FOUND}.\")")

    assert configured.returncode == 0, configured.stderr
    assert "-- found: .\n" in configured.stdout


def test_a_host_can_compare_the_version(prefix, tmp_path):
    source = tmp_path / "version.cpp"
    source.write_text("""
#include <varnex/version.h>
#if VARNEX_FFDC_VERSION < VARNEX_FFDC_VERSION_NUMBER(1, 0, 0) || \\
    VARNEX_FFDC_VERSION >= VARNEX_FFDC_VERSION_NUMBER(1, 100, 0)
#error not version 1
#endif
#include <iostream>
int main() {
    std::cout << VARNEX_FFDC_VERSION_MAJOR << '.' << VARNEX_FFDC_VERSION_MINOR << '.'
              << VARNEX_FFDC_VERSION_PATCH << '\\n';
}
""", encoding="utf-8")
    compile_with_pkg_config(prefix, source, tmp_path / "version", "-std=c++11")

    version = run(tmp_path / "version").stdout
    assert pkg_config(prefix, "--modversion", "varnex-ffdc") == version.split()
    assert f"libvarnexffdc.so.{version.strip()}" in {file.name for file in libraries(prefix).iterdir()}


def test_folders_given_as_whole_paths_stand_so_in_the_pkg_config_files(tmp_path):
    run("cmake", "-S", ROOT, "-B", tmp_path, f"-DCMAKE_CXX_COMPILER={CXX}", "-DVARNEX_BUILD_TESTS=OFF",
        "-DCMAKE_INSTALL_PREFIX=/opt/varnex", "-DCMAKE_INSTALL_LIBDIR=/usr/lib/varnex",
        "-DCMAKE_INSTALL_INCLUDEDIR=/usr/include/varnex-1")

    def flags(package):
        return run("pkg-config", "--cflags", "--libs", package,
                   environment={"PKG_CONFIG_PATH": str(tmp_path / "packaging")}).stdout.split()
    assert flags("varnex-ffdc") == ["-I/usr/include/varnex-1", "-L/usr/lib/varnex", "-lvarnexffdc"]
    assert flags("varnex-platform")[0] == "-I/usr/include/varnex-1/varnex/platform"


@pytest.mark.parametrize("package,words", [("varnex-ffdc", []),
                                           ("varnex-platform", ["-DWITH_PLATFORM"])])
def test_a_host_keeps_classes_of_the_platforms_names(prefix, package, words, tmp_path):
    compile_with_pkg_config(prefix, HERE / "hosts" / "own_classes.cpp", tmp_path / "host", *words,
                            "-std=c++11", "-rdynamic", *pkg_config(prefix, "--cflags", "--libs",
                                                                   package))
    with emulated_bmc(tmp_path, QUICK) as bmc:
        said = collect(tmp_path / "host", bmc, tmp_path / "ffdc.tar.gz")

    assert said == "host: begins\nhost: ends with 0\n"


def test_only_the_facade_is_exported(prefix):
    listed = (HERE / "exported-symbols.txt").read_text(encoding="utf-8").splitlines()

    assert exported(libraries(prefix) / "libvarnexffdc.so", "VARNEX_1.0") == listed


def test_the_platform_exports_in_a_version_too(prefix):
    assert exported(libraries(prefix) / "libvarnexplatform.so", "VARNEXPLATFORM_1.0")


@pytest.mark.parametrize("compiler", ["g++", "clang++"])
def test_public_headers_are_plain_cpp11(prefix, compiler, tmp_path):
    headers = sorted((prefix / "include" / "varnex").glob("*.h"))
    assert len(headers) == 6

    for header in headers:
        source = tmp_path / "alone.cpp"
        source.write_text(f"#include <varnex/{header.name}>\n", encoding="utf-8")
        run(compiler, "-std=c++11", *STRICT, "-fsyntax-only", f"-I{prefix}/include", source)


# A template says more when it is used.
USES = {"file_client.h": """
namespace curlcpp {
template class option_traits<long, CURLOPT_VERBOSE>;
template class option_traits<void*, static_cast<CURLoption>(0)>;
template class option_traits<std::list<std::string>, CURLOPT_HTTPHEADER>;
}
"""}


@pytest.mark.parametrize("names", [[], ["-DVARNEX_PLATFORM_GLOBAL"]])
@pytest.mark.parametrize("compiler", ["g++", "clang++"])
def test_platform_headers_stand_alone_in_cpp11(prefix, compiler, names, tmp_path):
    headers = sorted((prefix / "include" / "varnex" / "platform").glob("*.h"))
    assert {"Log.h", "file_client.h"} <= {header.name for header in headers}

    for header in headers:
        source = tmp_path / "alone.cpp"
        source.write_text(f'#include "{header.name}"\n{USES.get(header.name, "")}',
                          encoding="utf-8")
        run(compiler, "-std=c++11", *STRICT, *names, "-fsyntax-only", f"-I{header.parent}", source)


def test_a_host_catches_the_json_readers_error_by_its_type(prefix, tmp_path):
    compile_with_pkg_config(prefix, HERE / "hosts" / "catches_reader_error.cpp",
                            tmp_path / "host", "-std=c++17")
    scenario = """
redfish:
  answers:
    "POST *ExportFFDCData": [{status: 202, body: "not json"}]
"""
    with emulated_bmc(tmp_path, scenario) as bmc:
        said = run(tmp_path / "host", bmc["address"], bmc["redfish"]["port"], bmc["user"],
                   input=bmc["password"] + "\n").stdout

    assert said == "json_parser_error\n"


def test_the_tool_runs_from_the_moved_prefix(prefix):
    assert run(prefix / "bin" / "kemffdc", "--version").stdout.strip()


SHOW_DUMPABLE = """
#include <stdio.h>
#include <sys/prctl.h>
#include <sys/resource.h>
__attribute__((destructor)) static void show(void) {
    struct rlimit core;
    getrlimit(RLIMIT_CORE, &core);
    fprintf(stderr, "dumpable %d, core %d\\n", prctl(PR_GET_DUMPABLE), (int)core.rlim_max);
}
"""


def test_no_core_dump_of_the_tool_can_hold_a_password(prefix, tmp_path):
    """The tool in the build for users: a sanitized one stays dumpable, for the leak sanitizer."""
    library = tmp_path / "show.so"
    run(CXX, "-x", "c", "-", "-shared", "-fPIC", "-o", library, input=SHOW_DUMPABLE)
    with socket.socket() as closed:
        closed.bind(("127.0.0.1", 0))
        ended = subprocess.run(
            [prefix / "bin" / "kemffdc", "check", "--via", "redfish", "127.0.0.1", "--port",
             str(closed.getsockname()[1])],
            env={"LD_PRELOAD": str(library), "KEMFFDC_PASSWORD": "a secret word"},
            capture_output=True, text=True, timeout=60, check=False)
    assert ended.returncode == 3, ended.stderr
    assert "dumpable 0, core 0\n" in ended.stderr


def test_nothing_installed_knows_where_it_was_built(prefix):
    for file in prefix.rglob("*"):
        if file.is_file() and not file.is_symlink():
            content = file.read_bytes()
            assert str(BUILD).encode() not in content, file
            assert str(prefix.parent / "installed").encode() not in content, file


def test_the_readme_shows_the_example_that_is_built_here():
    example = (ROOT / "examples" / "collect.cpp").read_text(encoding="utf-8")
    shown = example[example.index("// collect"):]
    readme = (ROOT / "README.md").read_text(encoding="utf-8")

    assert f"## An archive in twenty lines of C++\n\n```cpp\n{shown}```" in readme
    assert len(shown.splitlines()) == 20


def test_what_demo_installs_is_enough_for_the_build_by_hand_in_the_readme(tmp_path):
    """As if the libraries that only ./test names were missing; configuring finds all others."""
    by_hand = re.search(r"```\n(cmake --preset \S+) && ",
                        (ROOT / "README.md").read_text(encoding="utf-8"))

    run(*by_hand[1].split(), "-S", ROOT, "-B", tmp_path, f"-DCMAKE_CXX_COMPILER={CXX}",
        "-DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON", cwd=ROOT)


def test_a_build_folder_of_ones_own_without_googletest_says_what_to_do(tmp_path):
    finished = subprocess.run(
        ["cmake", "-S", ROOT, "-B", tmp_path, f"-DCMAKE_CXX_COMPILER={CXX}",
         "-DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON"], capture_output=True, text=True, timeout=300, check=False)

    assert finished.returncode != 0
    assert "-DVARNEX_BUILD_TESTS=OFF builds without tests." in finished.stderr
