# SPDX-License-Identifier: Apache-2.0
"""The stack that KEMFfdc.h asks of a thread over IPMI. Runs below tools/private-net: the BMC's file
service is on port 115."""

import pathlib
import re

import pytest

from commands import CXX, run
from emulated_bmc import emulated_bmc

HERE = pathlib.Path(__file__).resolve().parent
SCENARIO = """
ipmi: {polls: 1, credential: {user: ffdc, password: aB3x9kQ2}}
sftp: {}
"""


def documented(prefix):
    """KiB."""
    contract = (prefix / "include" / "varnex" / "KEMFfdc.h").read_text(encoding="utf-8")
    return int(re.search(r"(\d+) KiB of stack", contract).group(1))


@pytest.mark.parametrize("name", ["127.0.0.1", "localhost"])
def test_a_whole_run_over_ipmi_fits_into_the_documented_stack(prefix, name, tmp_path):
    library = next(prefix.rglob("libvarnexffdc.so")).parent
    run(CXX, "-std=c++11", HERE / "hosts" / "small_stack.cpp", "-o", tmp_path / "host",
        f"-I{prefix}/include", f"-L{library}", "-lvarnexffdc", f"-Wl,-rpath,{library}", "-pthread")

    with emulated_bmc(tmp_path, SCENARIO) as bmc:
        said = run(tmp_path / "host", name, bmc["ipmi"]["port"], bmc["user"], f"{tmp_path}/",
                   documented(prefix), input=bmc["password"] + "\n",
                   environment={"VARNEX_KNOWN_HOSTS": tmp_path / "known_hosts"}).stdout
    result, used = map(int, said.split())

    assert result == 0
    # A third is left for what a host's own resolver or C library may want.
    assert used <= documented(prefix) * 2 / 3, f"{used} KiB"
    assert used > 32, "the run was not on that stack"
