# SPDX-License-Identifier: Apache-2.0
"""Strangers' IPMI clients, ipmitool and FreeIPMI's, read what the standard has every BMC tell."""

from __future__ import annotations

import datetime
import re
import socket
import subprocess
import sys
from pathlib import Path
from typing import Callable, Iterator

import pytest

from conftest import EMULATOR, ROOT, Bmc, Starter, clean_environment

sys.path.insert(0, str(EMULATOR))
from bmc.ipmi.standard import StandardCommands  # noqa: E402
from bmc.machine import Identity, Machine  # noqa: E402

# What the clients print of one machine: lines that begin with "$ " are commands, the others what follows.
TRANSCRIPT = Path(__file__).parent / "ipmi-clients.transcript"
SEED = 7
ENTRIES = ROOT + "Managers/1/LogServices/EventLog/Entries"

Client = Callable[[str], str]


@pytest.fixture(scope="module")
def judged(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Bmc]:
    starter = Starter(tmp_path_factory.mktemp("judged"))
    yield starter({"redfish": {"archive": {"seed": SEED}}})
    starter.stop_all()


@pytest.fixture(scope="module")
def client(judged: Bmc, tmp_path_factory: pytest.TempPathFactory) -> Client:
    """Runs one command of a client on the BMC."""
    cache = tmp_path_factory.mktemp("records")
    return lambda command: run(judged, command, cache)


def run(bmc: Bmc, command: str, cache: Path) -> str:
    """`command` as in the transcript, with address and account added; what it printed."""
    program, *rest = command.split()
    port = bmc.ready["ipmi"]["port"]
    if program == "ipmitool":
        who = ["-I", "lanplus", "-C", "17", "-H", bmc.address, "-p", str(port), "-U", bmc.user, "-P", bmc.password]
    else:
        who = ["-D", "LAN_2_0", "-I", "17", "-h", f"{bmc.address}:{port}", "-u", bmc.user, "-p", bmc.password]
    if program in ("ipmi-sel", "ipmi-sensors", "ipmi-fru"):
        who += [f"--sdr-cache-directory={cache}", "--quiet-cache"]
    done = subprocess.run([program, *who, *rest], capture_output=True, text=True, timeout=60,
                          env={**clean_environment(), "TZ": "UTC", "PATH": "/usr/sbin:/usr/bin:/sbin:/bin"})
    assert (done.returncode, done.stderr) == (0, ""), done.stdout + done.stderr
    return done.stdout


def transcript() -> dict[str, str]:
    parts = re.split(r"(?m)^\$ (.*)\n", TRANSCRIPT.read_text(encoding="utf-8"))
    return {command: printed.strip("\n") for command, printed in zip(parts[1::2], parts[2::2])}


def without_trailing_blanks(text: str) -> str:
    return "\n".join(line.rstrip() for line in text.splitlines()).strip("\n")


@pytest.mark.parametrize("command", transcript())
def test_the_clients_print_all_of_it(client: Client, command: str) -> None:
    assert without_trailing_blanks(client(command)) == transcript()[command]


def test_the_event_log_is_the_one_of_redfish(judged: Bmc, client: Client) -> None:
    told = judged.get(ENTRIES).json()["Members"]
    listed = [line.split("|") for line in client("ipmi-sel --no-header-output").splitlines()]

    assert len(listed) == len(told) == 40
    kinds = {
        "PowerSupplyPresent": "Presence detected", "PowerSupplyInputLost": "Power Supply input lost (AC/DC)",
        "HostPoweredOn": "S0/G0", "UserLoggedIn": "Session Activated",
        "MemoryErrorsCorrected": "Correctable memory error logging limit reached",
        "FanSpeedNormal": "Lower Non-critical - going low", "FanSpeedLow": "Lower Non-critical - going low",
        "InletTemperatureHigh": "Upper Non-critical - going high", "MachineCheck": "Machine Check Exception",
        "DeviceErrorUncorrectable": "Bus Uncorrectable Error",
    }
    for entry, (_, _, time, name, _, event) in zip(told, listed):
        key = entry["MessageId"].rpartition(".")[2]
        assert event.strip().startswith(kinds[key])
        assert time.strip() == entry["Created"][11:19]
        if key.startswith(("PowerSupply", "Fan", "Memory")):
            assert name.strip()[-1] == entry["MessageArgs"][0]


def test_temperatures_fans_and_power_are_those_of_redfish(judged: Bmc, client: Client) -> None:
    thermal, power = (judged.get(f"{ROOT}Chassis/1/{name}").json() for name in ("Thermal", "Power"))
    read = {}
    for line in client("ipmi-sensors --no-header-output").splitlines():
        _, name, _, value, *_ = (field.strip() for field in line.split("|"))
        read[name] = value

    for sensor in thermal["Temperatures"]:
        assert float(read[sensor["Name"] + " Temp"]) == sensor["ReadingCelsius"]
    for fan in thermal["Fans"]:
        assert abs(float(read[fan["Name"]]) - fan["Reading"]) <= 15
    assert abs(float(read["Power"]) - power["PowerControl"][0]["PowerConsumedWatts"]) <= 2.5


def test_the_chassis_is_as_redfish_left_it(start: Starter, tmp_path: Path) -> None:
    bmc = start()
    assert "System Power         : on" in run(bmc, "ipmitool chassis status", tmp_path)

    bmc.post(ROOT + "Systems/1/Actions/ComputerSystem.Reset", {"ResetType": "ForceOff"})

    assert "System Power         : off" in run(bmc, "ipmitool chassis status", tmp_path)
    assert re.search("System Power +: off", run(bmc, "ipmi-chassis --get-chassis-status", tmp_path))


def test_the_guids_are_those_of_the_ready_line(judged: Bmc, client: Client) -> None:
    wanted = judged.ready["machine"]["uuid"]

    assert f"System GUID   : {wanted}\n" in client("ipmitool mc guid")
    assert client("bmc-info --get-device-guid").strip().endswith(wanted)
    assert client("bmc-info --get-system-guid").strip().endswith(wanted)


def test_the_clock_of_the_log_goes_right(client: Client) -> None:
    told = datetime.datetime.strptime(client("ipmitool sel time get").strip(), "%m/%d/%y %H:%M:%S UTC")
    assert abs((datetime.datetime.utcnow() - told).total_seconds()) < 60


def test_the_channel_in_use_is_a_network(client: Client) -> None:
    told = client("bmc-info").partition("Channel Information")[2]

    assert re.match(r"\s+Channel Number +: 1\nMedium Type +: 802.3 LAN\nProtocol Type +: IPMB-1.0\n", told)


def test_the_host_is_told_the_same_in_band(judged: Bmc, client: Client) -> None:
    """As the kernel asks: network function, command, data; completion code and data come back."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as kcs:
        kcs.settimeout(10)
        kcs.connect("\0" + judged.ready["ipmi"]["kcs"])
        for request in ("0a 40", "0a 43 00 00 00 00 00 ff", "04 2d 01", "00 01", "06 08", "0a 23 00 00 01 00 00 ff"):
            frame = bytes.fromhex(request)
            kcs.sendall(len(frame).to_bytes(2, "big") + frame)
            size = int.from_bytes(kcs.recv(2, socket.MSG_WAITALL), "big")
            answer = kcs.recv(size, socket.MSG_WAITALL)
            over_lan = client("ipmitool raw " + " ".join(f"0x{byte:02x}" for byte in frame))
            assert answer == b"\0" + bytes.fromhex("".join(over_lan.split()))


# --- byte by byte -----------------------------------------------------------------------------

RECORDS = {"events": ((0x0A, 0x42), (0x0A, 0x43)), "sensors": ((0x0A, 0x22), (0x0A, 0x23))}


@pytest.fixture
def commands() -> StandardCommands:
    return StandardCommands(Machine(SEED))


def read(commands: StandardCommands, get: tuple[int, int], number: int, first: int = 0, count: int = 0xFF,
         reservation: bytes = b"\0\0") -> tuple[int, bytes]:
    return commands.answer(get, reservation + number.to_bytes(2, "little") + bytes([first, count]))


@pytest.mark.parametrize("kind", RECORDS)
def test_records_lead_to_each_other_and_come_in_pieces_too(commands: StandardCommands, kind: str) -> None:
    reserve, get = RECORDS[kind]
    number, seen = 0, []
    while number != 0xFFFF:
        _, answer = read(commands, get, number)
        record, following = answer[2:], int.from_bytes(answer[:2], "little")
        own = int.from_bytes(record[:2], "little")
        _, reservation = commands.answer(reserve, b"")
        pieces = [read(commands, get, own, first, 5, reservation)[1][2:] for first in range(0, len(record), 5)]
        assert b"".join(pieces) == record
        seen.append(own)
        number = following

    assert seen == sorted(set(seen)) and len(seen) >= 40
    assert read(commands, get, 0xFFFF)[1][2:4] == seen[-1].to_bytes(2, "little")


@pytest.mark.parametrize("kind", RECORDS)
def test_pieces_need_the_newest_reservation(commands: StandardCommands, kind: str) -> None:
    reserve, get = RECORDS[kind]
    older, newer = (commands.answer(reserve, b"")[1] for _ in range(2))

    assert older != newer != b"\0\0"
    assert read(commands, get, 1, 4, 4, older) == (0xC5, b"")
    assert read(commands, get, 1, 4, 4) == (0xC5, b"")
    assert read(commands, get, 1, 4, 4, newer)[0] == 0


@pytest.mark.parametrize("command, request_, code", [
    ((0x0A, 0x43), b"\0\0\x99\x99\0\xff", 0xCB),  # no such event
    ((0x0A, 0x23), b"\0\0\x99\x99\0\xff", 0xCB),  # no such sensor record
    ((0x0A, 0x43), b"\0\0\1\0", 0xC7),
    ((0x0A, 0x11), b"\0\xff\xff\x10", 0xC9),  # beyond the inventory
    ((0x0A, 0x10), b"\1", 0xCB),  # another inventory
    ((0x0A, 0x11), b"\0\0\0", 0xC7),
    ((0x04, 0x2D), b"\xfe", 0xCB),
    ((0x04, 0x2D), b"", 0xC7),
    ((0x04, 0x27), b"\x31", 0xCB),  # a sensor without a reading
    ((0x06, 0x42), b"\5", 0xCC),
    ((0x0A, 0x47), b"\0\0CLR\xaa", 0xC1),  # nothing is ever cleared
    ((0x2C, 0x01), b"", 0xC1),
])
def test_what_is_not_there_is_refused(
    commands: StandardCommands, command: tuple[int, int], request_: bytes, code: int
) -> None:
    assert commands.answer(command, request_) == (code, b"")


def test_a_piece_beyond_a_record_is_refused(commands: StandardCommands) -> None:
    _, reservation = commands.answer((0x0A, 0x42), b"")

    assert read(commands, (0x0A, 0x43), 1, 16, 1, reservation) == (0xC9, b"")


@pytest.mark.parametrize("seed", range(40))
def test_every_event_of_every_machine_has_a_record_and_a_sensor(seed: int) -> None:
    machine = Machine(seed)
    commands = StandardCommands(machine)
    known = {read(commands, (0x0A, 0x23), number)[1][9] for number in range(1, 44)}

    for number in range(1, 41):
        code, answer = read(commands, (0x0A, 0x43), number)
        assert (code, len(answer)) == (0, 18)
        assert answer[13] in known


@pytest.mark.parametrize("celsius, crossed", [(74, 0), (75, 0x08), (84, 0x08), (85, 0x18), (95, 0x38), (300, 0x38)])
def test_a_reading_says_which_thresholds_it_is_beyond(celsius: int, crossed: int) -> None:
    machine = Machine(SEED)
    machine.temperatures[0]["Reading"] = celsius

    answer = StandardCommands(machine).answer((0x04, 0x2D), b"\1")
    assert answer == (0, bytes([min(celsius, 255), 0xC0, 0xC0 | crossed]))


@pytest.mark.parametrize("rpm, crossed", [(2430, 0), (2400, 0x01), (1830, 0x01), (1800, 0x03), (0, 0x03)])
def test_so_does_one_that_is_too_low(rpm: int, crossed: int) -> None:
    machine = Machine(SEED)
    machine.fans[0]["Reading"] = rpm

    assert StandardCommands(machine).answer((0x04, 0x2D), b"\x11") == (0, bytes([rpm // 30, 0xC0, 0xC0 | crossed]))


def test_a_long_inventory_comes_in_parts() -> None:
    commands = StandardCommands(Machine(SEED, Identity(serial="S" * 63, model="M" * 63)))
    size = int.from_bytes(commands.answer((0x0A, 0x10), b"\0")[1][:2], "little")
    parts = [commands.answer((0x0A, 0x11), b"\0" + first.to_bytes(2, "little") + b"\xff")[1] for first in (0, 200)]

    assert [part[0] for part in parts] == [200, size - 200] == [len(part) - 1 for part in parts]


def test_the_parts_are_not_loaded_before_somebody_asks() -> None:
    done = subprocess.run(
        ["/usr/bin/python3", "-c", "import sys; import bmc.main; print(sorted(sys.modules))"],
        capture_output=True, text=True, check=True, timeout=60, cwd=EMULATOR)

    assert "bmc.ipmi.commands" in done.stdout
    for part in ("standard", "inventory", "event_log", "sensors", "sensor_records"):
        assert f"'bmc.ipmi.{part}'" not in done.stdout
