# SPDX-License-Identifier: Apache-2.0
"""Faults as weather: whole runs over connections that lose, delay, cut and drip, by several seeds.
Whatever happens, a run ends with a documented code within its bound, and leaves whole files or none.

To be run in tools/private-net, because of port 115.
"""

import concurrent.futures
import contextlib
import hashlib
import json
import pathlib
import sys

import pytest

import cim_tool
import ipmi_tool
import tool

sys.path.insert(0, str(tool.ROOT / "tests" / "support"))
import weather  # noqa: E402  pylint: disable=wrong-import-position

CODES = {0, 3, 4, 5, 6, 7, 8, 9}
SEEDS = range(1, 7)
PASSWORD = "secret"
URI = "sftp://127.0.0.1:9/in/"  # never used: the BMC only says that it has uploaded
QUICK_TRANSFERS = {"VARNEX_TRANSFER_STALL_TIME": "3", "VARNEX_TRANSFER_CONNECT_TIME": "5"}

# Options of the relay. The archive has 600,000 bytes, everything before it some 20,000.
TCP = {
    "late": ["--delay", "0..30", "--loss", "0.1"],
    "reset": ["--cut-after", "500..40000", "--cut-share", "0.5"],
    "closed": ["--cut-after", "500..40000", "--cut-share", "0.5", "--cut-how", "close"],
    "dripping": ["--drip", "700/2", "--delay", "0..10", "--direction", "up"],
}
DOWNLOAD = {
    "reset": ["--cut-after", "60000..600000"],
    "closed": ["--cut-after", "60000..600000", "--cut-how", "close"],
    "stalled": ["--cut-after", "60000..600000", "--cut-how", "stall"],
}
UDP = {
    "rain": ["--loss", "0.05", "--duplicate", "0.1", "--reorder", "0.1", "--delay", "0..20"],
    "storm": ["--loss", "0.1", "--duplicate", "0.3", "--reorder", "0.3", "--reorder-by", "300"],
}


def redfish_scenario():
    return {"user": "admin", "password": PASSWORD,
            "redfish": {"archive": {"size": 600000}, "task_states": ["Running", "Completed"]}}


def digest(path):
    return hashlib.sha256(pathlib.Path(path).read_bytes()).hexdigest()


def assert_proper_end(ended, output, whole, bound):
    """`whole`: the digests of everything that the BMC has."""
    assert ended.code in CODES, (ended.code, ended.err)
    assert "Sanitizer" not in ended.err and "runtime error" not in ended.err
    assert ended.err.endswith(f"[exit code {ended.code}]\n") or ended.code == 0, ended.err
    assert ended.seconds < bound * tool.SLOWNESS
    assert_whole_files_alone(output, whole)


def assert_whole_files_alone(output, whole):
    for name in tool.files_in(output) if output.exists() else []:
        path = output / name
        assert not path.name.startswith(".") and not path.name.endswith("part"), name
        assert path.is_dir() or is_record(path) or digest(path) in whole, f"{name} is not whole"


def is_record(path):
    return path.suffix == ".json" and json.loads(path.read_text(encoding="utf-8"))["path"] == str(path)[:-5]


def with_each_seed(run, at_once=len(SEEDS)):
    """Most of the time passes in waits: several at once."""
    with concurrent.futures.ThreadPoolExecutor(at_once) as pool:
        return list(pool.map(run, SEEDS))


# ---- one run in each weather ----------------------------------------------------------------------

@pytest.fixture(scope="module")
def redfish_bmc():
    bmc = tool.Bmc(redfish_scenario())
    yield bmc
    bmc.stop()


@pytest.mark.parametrize("kind", sorted(TCP))
def test_redfish(redfish_bmc, tmp_path, kind):
    with_each_seed(lambda seed: collect_redfish(redfish_bmc, tmp_path / str(seed), [*TCP[kind], "--seed", seed]), 3)


@pytest.mark.parametrize("kind", sorted(DOWNLOAD))
def test_a_download_that_breaks(redfish_bmc, tmp_path, kind):
    options = [*DOWNLOAD[kind], "--direction", "down", "--seed"]
    codes = with_each_seed(lambda seed: collect_redfish(redfish_bmc, tmp_path / str(seed), [*options, seed]))
    assert codes == [7] * len(SEEDS)


def collect_redfish(bmc, folder, options, bound=60):
    folder.mkdir()
    with weather.Relay("tcp", bmc.port, *options) as relay:
        arguments = tool.collect(bmc, folder / "out")
        arguments[arguments.index("--port") + 1] = str(relay.port)
        ended = tool.run(arguments, bound, password=PASSWORD, environment=QUICK_TRANSFERS)
        assert relay.decisions() != []
    assert_proper_end(ended, folder / "out", {bmc.ready["archive"]["sha256"]}, bound)
    if ended.code == 0:
        assert len(tool.archives_in(folder / "out")) == 1
    return ended.code


@pytest.fixture(scope="module")
def cim_bmc():
    bmc = tool.Bmc({"user": "admin", "password": PASSWORD, "cim": {"export": {"upload": False}}})
    yield bmc
    bmc.stop()


@pytest.mark.parametrize("kind", sorted(TCP))
def test_cim(cim_bmc, tmp_path, kind):
    with_each_seed(lambda seed: collect_cim(cim_bmc, tmp_path, [*TCP[kind], "--seed", seed]), 3)


def collect_cim(bmc, folder, options, bound=90):
    with weather.Relay("tcp", cim_tool.port_of(bmc), *options) as relay:
        arguments = cim_tool.collect(bmc, URI)
        arguments[arguments.index("--port") + 1] = str(relay.port)
        ended = tool.run(arguments, bound, password=PASSWORD)
        assert relay.decisions() != []
    assert_proper_end(ended, folder, set(), bound)


@contextlib.contextmanager
def ipmi_bmc(udp, tcp):
    """A BMC whose both ports are behind relays, and the arguments that reach it."""
    address = ipmi_tool.fresh_address()
    scenario = ipmi_tool.scenario(
        {"polls": 1}, {"files": {"/download/ffdc/": ["a.log", {"name": "b.tgz", "size": 300000}]}})
    with ipmi_tool.started({"user": "admin", "password": PASSWORD, **scenario}) as bmc, \
            weather.Relay("udp", ipmi_tool.port_of(bmc), *udp, "--listen", f"{address}:0", target=bmc.address) as lan, \
            weather.Relay("tcp", 115, *tcp, "--listen", f"{address}:115", target=bmc.address):
        arguments = ipmi_tool.over_lan("collect", bmc, "--mode", "2")
        arguments[arguments.index(bmc.address)] = address
        arguments[arguments.index("--port") + 1] = str(lan.port)
        yield bmc, lan, arguments


def collect_ipmi(udp, tcp, folder, seed):
    folder.mkdir()
    options = ["--seed", seed]
    with ipmi_bmc([*udp, *options], [*tcp, *options]) as (bmc, lan, arguments):
        environment = {**ipmi_tool.environment(folder), **QUICK_TRANSFERS}
        ended = tool.run([*arguments, "--output", str(folder / "out")], 150, password=PASSWORD,
                         environment=environment)
        assert lan.decisions() != [], ended.err
        assert_proper_end(ended, folder / "out", set(ipmi_tool.served(bmc).values()), 150)
    return ended.code


@pytest.mark.parametrize("kind", sorted(UDP))
def test_ipmi(tmp_path, kind):
    codes = with_each_seed(lambda seed: collect_ipmi(UDP[kind], [], tmp_path / str(seed), seed))
    if kind == "rain":
        assert codes == [0] * len(SEEDS)


@pytest.mark.parametrize("kind", sorted(DOWNLOAD))
def test_ipmi_downloads_that_break(tmp_path, kind):
    options = [*DOWNLOAD[kind], "--direction", "down"]
    options[1] = "4000..300000"
    codes = with_each_seed(lambda seed: collect_ipmi([], options, tmp_path / str(seed), seed))
    assert set(codes) <= {7, 9}
