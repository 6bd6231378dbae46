# SPDX-License-Identifier: Apache-2.0
"""What the tests of the package run, and with what.

VARNEX_BUILD names the build folder that is installed, VARNEX_CXX its compiler.
"""

import json
import os
import pathlib
import re
import shutil
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ["VARNEX_BUILD"])
# Further builds of the library. They stay: the next run compiles what has changed since.
KEPT = BUILD.with_name(f"{BUILD.name}-package")
CXX = os.environ.get("VARNEX_CXX", "g++")
STEERING = re.compile(r"(?i)(.*_proxy|LD_LIBRARY_PATH|PKG_CONFIG_PATH|CMAKE_PREFIX_PATH"
                      r"|REQUESTS_CA_BUNDLE|CURL_CA_BUNDLE|SSL_CERT_(FILE|DIR)|VARNEX_.*)$")
ENVIRONMENT = {name: value for name, value in os.environ.items() if not STEERING.match(name)}


def run(*command, environment=None, **options):
    """The finished process; a failure shows what it said."""
    finished = subprocess.run([str(word) for word in command], capture_output=True, text=True,
                              timeout=600, check=False, env={**ENVIRONMENT, **(environment or {})},
                              **options)
    assert finished.returncode == 0, f"{command}\n{finished.stdout}\n{finished.stderr}"
    return finished


def configured(setting, build=BUILD):
    """Whether a line like NAME:TYPE=VALUE is what the build was configured with."""
    return setting in (build / "CMakeCache.txt").read_text(encoding="utf-8").splitlines()


def build_library(source, folder, *settings):
    """Configures and builds, with Ninja; a folder of an earlier run goes on if that asked for the same.

    CMake forgets its other settings where the compiler is another one.
    """
    command = [str(word) for word in ("cmake", "-S", source, "-B", folder, "-G", "Ninja",
                                      f"-DCMAKE_CXX_COMPILER={CXX}", *settings)]
    earlier = folder / "configured-by.json"
    if not earlier.is_file() or json.loads(earlier.read_text(encoding="utf-8")) != command:
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)
        earlier.write_text(json.dumps(command), encoding="utf-8")
    run(*command)
    run("cmake", "--build", folder, "-j2")
