# SPDX-License-Identifier: Apache-2.0
"""Which BMCs a fleet has: kinds in their shares, faults drawn from a seed, and what each is to do."""

from __future__ import annotations

import ipaddress
import random
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Mapping, Sequence

from bmc.redfish.diagnostic_settings import ANSWERS

USER = "admin"
SHAPES = ("harrow", "orlan", "quillon")  # other vendors' trees
_OPERATIONS = {"redfish": "oem", "standard": "standard", "tree": "tree", **{shape: "tree" for shape in SHAPES}}
KINDS = (*_OPERATIONS, "ipmi", "cim")
FAULTS = ("wrong-password", "silent", "busy", "slow", "dies", "cut")
_OTHERS = {
    "redfish": ["cim", "cim-https", "ipmi"],
    "ipmi": ["redfish", "cim", "cim-https"],
    "cim": ["redfish", "cim", "ipmi"],
}
_SHAPE_FILES = Path(__file__).resolve().parents[1] / "shapes"
_SLOWER = 5  # times
_SMALL = 4096  # bytes that come before a download is cut


class PlanError(Exception):
    """A wish that cannot be; the text says which."""


@dataclass(frozen=True)
class FleetWishes:
    """What the fleet is to be like."""

    count: int
    mix: Mapping[str, int]  # shares by kind
    faults: float  # percent of the BMCs
    seed: int
    gathering: float  # seconds that it takes
    archive_size: int | None
    password: str


@dataclass(frozen=True)
class PlannedBmc:
    """One BMC of the fleet."""

    name: str
    address: str
    kind: str  # one of KINDS
    fault: str  # one of FAULTS; empty: none
    scenario: Mapping[str, Any]

    @property
    def via(self) -> str:
        """The channel that is open."""
        return "redfish" if self.kind in _OPERATIONS else self.kind

    @property
    def operation(self) -> str | None:
        """By which operation over Redfish it gives service data; None: it has another channel."""
        return _OPERATIONS.get(self.kind)


def plan(wishes: FleetWishes) -> Sequence[PlannedBmc]:
    """The same wishes make the same fleet."""
    draw = random.Random(wishes.seed)
    kinds = _kinds(wishes)
    draw.shuffle(kinds)
    faulty = set(draw.sample(range(wishes.count), round(wishes.count * wishes.faults / 100)))
    width = max(3, len(str(wishes.count)))
    bmcs = []
    for number, kind in enumerate(kinds):
        fault = draw.choice(FAULTS) if number in faulty else ""
        scenario = _scenario(wishes, number, kind)
        if fault:
            _spoil(scenario, kind, fault, wishes)
        name = f"bmc{number + 1:0{width}d}"
        bmcs.append(PlannedBmc(name, _address(number), kind, fault, scenario))
    return bmcs


def read_mix(text: str) -> dict[str, int]:
    """"redfish=60,ipmi=20,cim=20" as shares."""
    mix = {}
    for part in text.split(","):
        kind, _, share = part.partition("=")
        if kind not in KINDS or not share.isdecimal():
            raise PlanError(f"{part!r} is no share of a kind ({', '.join(KINDS)}): redfish=60,ipmi=20,cim=20")
        mix[kind] = int(share)
    if not sum(mix.values()):
        raise PlanError("no kind has a share")
    return mix


def _kinds(wishes: FleetWishes) -> list[str]:
    """As many of each kind as its share says; what does not come out even goes to the first one."""
    total = sum(wishes.mix.values())
    kinds = [k for k, share in wishes.mix.items() for _ in range(wishes.count * share // total)]
    first = next(kind for kind, share in wishes.mix.items() if share)
    return kinds + [first] * (wishes.count - len(kinds))


def _address(number: int) -> str:
    """127.1.0.1 and on: without those that end in 0 or 255, which look like networks."""
    return str(ipaddress.IPv4Address("127.1.0.1") + number // 254 * 256 + number % 254)


def _scenario(wishes: FleetWishes, number: int, kind: str) -> dict[str, Any]:
    scenario: dict[str, Any] = {
        "user": USER,
        "password": wishes.password,
        "closed": list(_OTHERS["redfish" if kind in _OPERATIONS else kind]),
        "redfish": {"archive": {"seed": wishes.seed * 100_003 + number, "size": wishes.archive_size}},
    }
    if kind in _OPERATIONS:
        scenario["redfish"].update(_redfish(wishes, number, kind))
    elif kind == "ipmi":
        scenario["ipmi"] = {
            "polls": max(0, round(wishes.gathering / 5)),  # the client asks every five seconds
            "credential": {"user": "ffdc", "password": wishes.password},
        }
        scenario["sftp"] = {}
    else:
        scenario["cim"] = {"data": [1, 2], "export": {"seconds": wishes.gathering}}
    return scenario


def _redfish(wishes: FleetWishes, number: int, kind: str) -> dict[str, Any]:
    section: dict[str, Any] = {
        "task_step_seconds": max(0.01, wishes.gathering / 4),
        "task_states": ["New", *_running(10, 40, 80), "Completed"],
        "download": {"ranges": True},
    }
    if kind == "redfish":
        return section
    section["export_action"] = "missing"
    if kind == "standard":  # each form of its answer by turns
        section["diagnostics"] = {"services": [{"entries": 5}], "answer": ANSWERS[number % len(ANSWERS)]}
    elif kind in SHAPES:
        section["shape"] = str(_SHAPE_FILES / f"{kind}.yaml")
    return section


def _running(*percents: int) -> list[dict[str, Any]]:
    return [{"state": "Running", "percent": percent} for percent in percents]


def _spoil(scenario: dict[str, Any], kind: str, fault: str, wishes: FleetWishes) -> None:
    """Makes the BMC have the fault; one that its kind cannot have becomes a busy BMC."""
    if fault == "wrong-password":
        scenario["password"] = wishes.password[::-1] + "X"
        return
    spoil = {"redfish": _spoil_redfish, "standard": _spoil_standard, "ipmi": _spoil_ipmi, "cim": _spoil_cim}
    spoil.get(kind, _spoil_tree)(scenario, fault, wishes.gathering)


def _spoil_redfish(scenario: dict[str, Any], fault: str, gathering: float) -> None:
    section = scenario["redfish"]
    if fault == "silent":
        scenario["closed"].remove("cim")
        scenario["filtered"] = ["redfish"]
    elif fault == "slow":
        section["task_step_seconds"] = max(0.1, gathering / 4 * _SLOWER)
        section["answers"] = {"* /*": [{"delay": 0.3, "repeat": True}]}
    elif fault == "dies":
        section["task_states"] = ["New", *_running(10), {"gone": True}]
    elif fault == "cut":
        section["answers"] = {"GET /download/*": [{"cut_after": _SMALL}]}
    else:
        section["answers"] = {"POST *Export*": [{"status": 503, "repeat": True}]}


def _spoil_standard(scenario: dict[str, Any], fault: str, gathering: float) -> None:
    section = scenario["redfish"]
    if fault in ("silent", "slow"):
        _spoil_redfish(scenario, fault, gathering)
    elif fault == "dies":  # a task that is gone leaves its entry in the log
        section["task_states"] = ["New", *_running(10), "Exception"]
        section["diagnostics"]["answer"] = "both"
    elif fault == "cut":
        section["answers"] = {"GET */attachment": [{"cut_after": _SMALL}]}
    else:
        section["answers"] = {"POST *CollectDiagnosticData": [{"status": 503, "repeat": True}]}


def _spoil_tree(scenario: dict[str, Any], fault: str, gathering: float) -> None:
    section = scenario["redfish"]
    if fault in ("silent", "slow"):
        _spoil_redfish(scenario, fault, gathering)
    elif fault == "dies":
        section["answers"] = {"GET /redfish/v1/Chassis*": [{"cut_after": 0, "repeat": True}]}
    elif fault == "cut":
        section["answers"] = {"GET /redfish/v1/Chassis/*": [{"cut_after": 20}]}
    else:
        busy = {"status": 503, "headers": {"Retry-After": "1"}, "repeat": True}
        section["answers"] = {"GET /redfish/v1/Chassis*": [busy]}


def _spoil_ipmi(scenario: dict[str, Any], fault: str, gathering: float) -> None:
    section = scenario["ipmi"]
    if fault == "silent":
        section["silent"] = True
    elif fault == "slow":
        section["answer_time"] = 0.3
        section["polls"] = max(1, round(gathering / 5 * _SLOWER))
    elif fault == "dies":
        section["answers"] = {"poll": [{"gone": True}]}
    elif fault == "cut":
        scenario["sftp"] = {"answers": {"open": [{"cut_after": 1000}]}}
    else:
        section["answers"] = {"collect": {"code": 0xC0, "repeat": True}}


def _spoil_cim(scenario: dict[str, Any], fault: str, gathering: float) -> None:
    section = scenario["cim"]
    if fault == "silent":
        scenario["closed"].remove("cim")
        scenario["filtered"] = ["cim-https"]
    elif fault == "slow":
        section["export"]["seconds"] = gathering * _SLOWER
    elif fault == "dies":
        section["answers"] = {"ExportData": [{"close": "before"}]}
    else:
        section["answers"] = {"ExportData": {"return": 6, "repeat": True}}
