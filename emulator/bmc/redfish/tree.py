# SPDX-License-Identifier: Apache-2.0
"""The resources of the Redfish service that do not change while it runs, and how they hang together."""

from __future__ import annotations

from typing import Any, Iterable, Mapping

from bmc.machine import Machine, iso
from bmc.redfish import registries
from bmc.redfish.documents import Document, collection, link, resource
from bmc.redfish.schemas import OEM_TYPES, is_foreign, namespace_of, references
from bmc.redfish.sessions import Account
from bmc.redfish.settings import RedfishSettings
from bmc.redfish.shape import Shape
from bmc.scenario import ROLES

ROOT = "/redfish/v1"
SESSIONS = ROOT + "/SessionService/Sessions"
SERVICE_DATA = ROOT + "/Managers/1/Oem/Tavrin/ServiceData"
EXPORT_NAME = "TavrinServiceData.ExportFFDCData"
EXPORT = f"{SERVICE_DATA}/Actions/{EXPORT_NAME}"
SYSTEM_RESET = ROOT + "/Systems/1/Actions/ComputerSystem.Reset"
MANAGER_RESET = ROOT + "/Managers/1/Actions/Manager.Reset"
RESETS = {  # what a reset leaves the host's power at, by the action's target and ResetType; None: as it was
    SYSTEM_RESET: {
        "On": "On", "ForceOn": "On", "ForceOff": "Off", "GracefulShutdown": "Off", "PowerCycle": "On",
        "ForceRestart": "On", "GracefulRestart": "On",
    },
    MANAGER_RESET: {"GracefulRestart": None, "ForceRestart": None},
}
COLLECTIONS = ("ProcessorDump", "Mini-log")

_OK = {"State": "Enabled", "Health": "OK"}
_PRIVILEGES = {
    "Administrator": (
        "Login", "ConfigureManager", "ConfigureUsers", "ConfigureSelf", "ConfigureComponents",
    ),
    "Operator": ("Login", "ConfigureSelf", "ConfigureComponents"),
    "ReadOnly": ("Login", "ConfigureSelf"),
}


def _told(**members: str | None) -> Document:
    """Members of which the BMC may know nothing; those are left out."""
    return {name: value for name, value in members.items() if value is not None}


class Tree:
    """All fixed documents by path (without a slash at the end)."""

    def __init__(
        self, machine: Machine, settings: RedfishSettings, accounts: Mapping[str, Account]
    ) -> None:
        self._machine = machine
        self._controller = f"{machine.model or ''} Management Controller".strip()
        self._settings = settings
        self.task_service = ROOT + ("/TaskService" if settings.has_task_service else "/Tasks")
        self.tasks = self.task_service + "/Tasks"
        self._documents: dict[str, Document] = {}
        self.shape = None if settings.shape is None else Shape(settings.shape, machine, ROOT)
        if self.shape is None:
            for part in (self._systems(), self._chassis(), self._managers(), self._event_log(), self._log_services()):
                self._add(part)
        else:
            self._add(self.shape.documents.values())
        for part in (self._root(), self._services(), self._accounts(accounts), self._registries()):
            self._add(part)

    @property
    def documents(self) -> Mapping[str, Document]:
        return self._documents

    def set_power(self, state: str) -> None:
        """The host is switched on or off."""
        self._machine.power = state
        for part in ("/Systems/1", "/Chassis/1"):
            self._documents[ROOT + part]["PowerState"] = state

    def _add(self, documents: Iterable[Document]) -> None:
        for document in documents:
            self._documents[document["@odata.id"].rstrip("/")] = document

    def _root(self) -> Iterable[Document]:
        root = resource(
            ROOT + "/", "ServiceRoot", "1_13_0", "Root Service",
            RedfishVersion=self._settings.version,
            Vendor="Tavrin",
            Product=self._controller,
            **_told(UUID=self._machine.uuid),
            ProtocolFeaturesSupported={
                "ExcerptQuery": False, "FilterQuery": False, "OnlyMemberQuery": False, "SelectQuery": False,
            },
            **({name: link(f"{ROOT}/{name}") for name in ("Systems", "Chassis", "Managers")} if self.shape is None else {}),
            SessionService=link(ROOT + "/SessionService"),
            AccountService=link(ROOT + "/AccountService"),
            Tasks=link(self.task_service),
            Registries=link(ROOT + "/Registries"),
            Links={"Sessions": link(SESSIONS)},
        )
        root["Id"] = "RootService"
        if self.shape is not None:
            root.update(self.shape.root_members)
            root["ProtocolFeaturesSupported"].update(self.shape.features)
        if self._settings.version is None:
            del root["RedfishVersion"]
        yield root

    def _systems(self) -> Iterable[Document]:
        top, machine = ROOT + "/Systems", self._machine
        yield collection(top, "ComputerSystem", "Computer System Collection", ["1"])
        yield resource(
            top + "/1", "ComputerSystem", "1_18_0", "Host",
            Manufacturer="Tavrin",
            **_told(Model=machine.model, SerialNumber=machine.serial, UUID=machine.uuid),
            SystemType="Physical", PowerState="On", HostName="host", IndicatorLED="Off",
            BiosVersion="T2E138K-3.10", Status=_OK,
            Boot={"BootSourceOverrideEnabled": "Disabled", "BootSourceOverrideTarget": "None"},
            ProcessorSummary={"Count": len(machine.processors), "Status": _OK},
            MemorySummary={"TotalSystemMemoryGiB": 32 * len(machine.memory), "Status": _OK},
            Processors=link(top + "/1/Processors"),
            Memory=link(top + "/1/Memory"),
            Actions=_reset_action("ComputerSystem", SYSTEM_RESET),
            Links={"Chassis": [link(ROOT + "/Chassis/1")], "ManagedBy": [link(ROOT + "/Managers/1")]},
        )
        yield collection(
            top + "/1/Processors", "Processor", "Processors", [p["Id"] for p in machine.processors]
        )
        for cpu in machine.processors:
            yield resource(
                f"{top}/1/Processors/{cpu['Id']}", "Processor", "1_14_0", cpu["Socket"],
                Socket=cpu["Socket"], ProcessorType="CPU", ProcessorArchitecture="x86",
                InstructionSet="x86-64", MaxSpeedMHz=cpu["MaxSpeedMHz"], TotalCores=cpu["Cores"],
                TotalThreads=cpu["Threads"], ProcessorId={"MicrocodeInfo": cpu["MicrocodeId"]}, Status=_OK,
            )
        yield collection(top + "/1/Memory", "Memory", "Memory", [d["Id"] for d in machine.memory])
        for dimm in machine.memory:
            details = {name: value for name, value in dimm.items() if name != "Id"}
            yield resource(
                f"{top}/1/Memory/{dimm['Id']}", "Memory", "1_14_0", dimm["DeviceLocator"],
                MemoryType="DRAM", MemoryDeviceType="DDR5", Status=_OK, **details,
            )

    def _chassis(self) -> Iterable[Document]:
        top, machine = ROOT + "/Chassis", self._machine
        yield collection(top, "Chassis", "Chassis Collection", ["1"])
        yield resource(
            top + "/1", "Chassis", "1_20_0", "Chassis",
            ChassisType="RackMount", Manufacturer="Tavrin",
            **_told(Model=machine.model, SerialNumber=machine.serial),
            PowerState="On", IndicatorLED="Off", Status=_OK,
            Thermal=link(top + "/1/Thermal"), Power=link(top + "/1/Power"),
            Links={
                "ComputerSystems": [link(ROOT + "/Systems/1")], "ManagedBy": [link(ROOT + "/Managers/1")],
            },
        )
        yield resource(
            top + "/1/Thermal", "Thermal", "1_7_1", "Thermal",
            Temperatures=self._readings(
                top + "/1/Thermal#/Temperatures", machine.temperatures, "ReadingCelsius"
            ),
            Fans=[
                {**fan, "ReadingUnits": "RPM"}
                for fan in self._readings(top + "/1/Thermal#/Fans", machine.fans, "Reading")
            ],
        )
        yield resource(
            top + "/1/Power", "Power", "1_7_1", "Power",
            PowerControl=[{
                "@odata.id": top + "/1/Power#/PowerControl/0", "MemberId": "0", "Name": "Server",
                "PowerConsumedWatts": machine.watts, "PowerCapacityWatts": 1100, "Status": _OK,
            }],
        )

    @staticmethod
    def _readings(top: str, sensors: Iterable[Mapping[str, Any]], member: str) -> list[Document]:
        return [
            {
                "@odata.id": f"{top}/{number}", "MemberId": str(number), "Name": sensor["Name"],
                member: sensor["Reading"], "Status": _OK,
            }
            for number, sensor in enumerate(sensors)
        ]

    def _managers(self) -> Iterable[Document]:
        top, machine = ROOT + "/Managers", self._machine
        yield collection(top, "Manager", "Manager Collection", ["1"])
        yield resource(
            top + "/1", "Manager", "1_15_0", "Management Controller",
            ManagerType="BMC", Manufacturer="Tavrin", Model=self._controller, PowerState="On", Status=_OK,
            **_told(
                FirmwareVersion=machine.firmware, SerialNumber=machine.serial, UUID=machine.uuid,
                ServiceEntryPointUUID=machine.uuid,
            ),
            NetworkProtocol=link(top + "/1/NetworkProtocol"),
            EthernetInterfaces=link(top + "/1/EthernetInterfaces"),
            LogServices=link(top + "/1/LogServices"),
            Links={
                "ManagerForServers": [link(ROOT + "/Systems/1")],
                "ManagerForChassis": [link(ROOT + "/Chassis/1")],
            },
            Oem={
                "Tavrin": {
                    "@odata.type": "#TavrinManager.v1_0_0.Tavrin",
                    "ServiceData": link(SERVICE_DATA),
                }
            },
            Actions={**_reset_action("Manager", MANAGER_RESET), "Oem": self._export_action()},
        )
        yield self._service_data()
        yield resource(
            top + "/1/NetworkProtocol", "ManagerNetworkProtocol", "1_8_0", "Network Protocols",
            HostName=f"bmc-{machine.label.lower()}", Status=_OK,
            HTTPS={"ProtocolEnabled": True, "Port": 443}, IPMI={"ProtocolEnabled": True, "Port": 623},
            SSH={"ProtocolEnabled": False, "Port": 22},
        )
        yield collection(
            top + "/1/EthernetInterfaces", "EthernetInterface", "Ethernet Interfaces", ["eth0"]
        )
        yield resource(
            top + "/1/EthernetInterfaces/eth0", "EthernetInterface", "1_8_0", "Management Network",
            MACAddress=self._machine.mac, SpeedMbps=1000, FullDuplex=True, InterfaceEnabled=True,
            LinkStatus="LinkUp", Status=_OK,
        )

    def _service_data(self) -> Document:
        return resource(
            SERVICE_DATA, "TavrinServiceData", "1_0_0", "Service Data",
            Description="Gathers first failure data for the service provider.",
            Actions=self._export_action(),
        )

    def _export_action(self) -> Document:
        """The OEM action, as the manager and its service data list it."""
        if self._settings.export_action != "offered":
            return {}
        return {
            "#" + EXPORT_NAME: {
                "target": EXPORT,
                "title": "ExportFFDCData",
                "DataCollectionType@Redfish.AllowableValues": list(COLLECTIONS),
            }
        }

    def _event_log(self) -> Iterable[Document]:
        top = ROOT + "/Managers/1/LogServices"
        yield collection(top, "LogService", "Log Services", ["EventLog"])
        yield resource(
            top + "/EventLog", "LogService", "1_3_0", "Event Log",
            MaxNumberOfRecords=1024, OverWritePolicy="WrapsWhenFull", LogEntryType="Event",
            Status=_OK, Entries=link(top + "/EventLog/Entries"),
        )
        path = top + "/EventLog/Entries"
        entries = [
            resource(
                f"{path}/{event.number}", "LogEntry", "1_11_0", f"Event {event.number}",
                EntryType="Event", Created=iso(event.time), **registries.log_message(event.name, *event.args),
            )
            for event in self._machine.recent_events
        ]
        listed = collection(path, "LogEntry", "Event Log Entries", [e["Id"] for e in entries])
        yield {**listed, "Members": entries}
        yield from entries

    def _log_services(self) -> Iterable[Document]:
        """The services that collect diagnostic data belong into the collections; who serves them is another."""
        services = self._settings.diagnostics.services
        for below in ("Managers", "Systems", "Chassis"):
            members = [service.id for service in services if service.below == below]
            if not members:
                continue
            top = f"{ROOT}/{below}/1/LogServices"
            self._documents[f"{ROOT}/{below}/1"]["LogServices"] = link(top)
            before = ["EventLog"] if below == "Managers" else []
            yield collection(top, "LogService", "Log Services", before + members)

    def _services(self) -> Iterable[Document]:
        yield resource(
            ROOT + "/SessionService", "SessionService", "1_1_8", "Session Service",
            ServiceEnabled=True, SessionTimeout=int(self._settings.sessions.seconds), Status=_OK, Sessions=link(SESSIONS),
        )
        task_service = resource(
            self.task_service, "TaskService", "1_2_0", "Task Service",
            ServiceEnabled=True, CompletedTaskOverWritePolicy="Oldest",
            LifeCycleEventOnTaskStateChange=False, Status=_OK, Tasks=link(self.tasks),
        )
        yield {**task_service, "Id": "TaskService"}

    @staticmethod
    def _accounts(accounts: Mapping[str, Account]) -> Iterable[Document]:
        top = ROOT + "/AccountService"
        yield resource(
            top, "AccountService", "1_11_0", "Account Service",
            ServiceEnabled=True, MinPasswordLength=8, Status=_OK,
            Accounts=link(top + "/Accounts"), Roles=link(top + "/Roles"),
        )
        numbers = [str(number) for number in range(1, len(accounts) + 1)]
        yield collection(top + "/Accounts", "ManagerAccount", "Accounts", numbers)
        for number, account in zip(numbers, accounts.values()):
            yield resource(
                f"{top}/Accounts/{number}", "ManagerAccount", "1_9_0", "User Account",
                UserName=account.user, Password=None, RoleId=account.role, Enabled=True, Locked=False,
                AccountTypes=["Redfish"], Links={"Role": link(f"{top}/Roles/{account.role}")},
            )
        yield collection(top + "/Roles", "Role", "Roles", ROLES)
        for name in ROLES:
            yield resource(
                f"{top}/Roles/{name}", "Role", "1_3_1", f"{name} Role",
                RoleId=name, IsPredefined=True, AssignedPrivileges=list(_PRIVILEGES[name]),
            )

    @staticmethod
    def _registries() -> Iterable[Document]:
        top = ROOT + "/Registries"
        yield collection(top, "MessageRegistryFile", "Registries", registries.VERSIONS)
        for name, version in registries.VERSIONS.items():
            uri = f"{top}/{name}/{name}.{version}.json"
            yield resource(
                f"{top}/{name}", "MessageRegistryFile", "1_1_3", f"{name} Message Registry File",
                Registry=f"{name}.{version.rpartition('.')[0]}", Languages=["en"],
                Location=[{"Language": "en", "Uri": uri}],
            )
            yield {
                "@odata.id": uri,
                "@odata.type": "#MessageRegistry.v1_4_2.MessageRegistry",
                "Id": f"{name}.{version}", "Name": f"{name} Message Registry", "Language": "en",
                "RegistryPrefix": name, "RegistryVersion": version, "OwningEntity": "Tavrin",
                "Messages": {key: _registry_entry(m) for key, m in registries.MESSAGES[name].items()},
            }

    def odata(self) -> Document:
        """The OData service document."""
        root = self._documents[ROOT]
        names = [n for n, v in root.items() if isinstance(v, dict) and set(v) == {"@odata.id"}]
        entries = [{"name": "Service", "url": ROOT + "/"}]
        entries += [{"name": name, "url": root[name]["@odata.id"]} for name in names]
        entries.append({"name": "Sessions", "url": SESSIONS})
        return {
            "@odata.context": ROOT + "/$metadata",
            "value": [{**entry, "kind": "Singleton"} for entry in entries],
        }

    def metadata(self) -> str:
        """The CSDL document: references to the schemas of all types in use."""
        types = {namespace_of(d["@odata.type"]) for d in self._documents.values() if not is_foreign(d)}
        types |= {"Task.v1_7_0", "Session.v1_5_0", "TaskCollection", "SessionCollection", *OEM_TYPES.values()}
        if self._settings.diagnostics.services:
            types |= {"LogService.v1_4_0", "LogEntry.v1_11_0", "LogEntryCollection", "ActionInfo.v1_3_0"}
        lines = ['<?xml version="1.0" encoding="UTF-8"?>']
        lines.append('<edmx:Edmx xmlns:edmx="http://docs.oasis-open.org/odata/ns/edmx" Version="4.0">')
        lines += references(types)
        lines += [
            "  <edmx:DataServices>",
            '    <Schema xmlns="http://docs.oasis-open.org/odata/ns/edm" Namespace="Service">',
            '      <EntityContainer Name="Service" Extends="ServiceRoot.v1_13_0.ServiceContainer"/>',
            "    </Schema>",
            "  </edmx:DataServices>",
            "</edmx:Edmx>",
        ]
        return "\n".join(lines) + "\n"


def _reset_action(type_: str, target: str) -> Document:
    return {
        f"#{type_}.Reset": {
            "target": target, "title": "Reset", "ResetType@Redfish.AllowableValues": list(RESETS[target]),
        }
    }


def _registry_entry(message: registries.Message) -> Document:
    count = message.arguments
    return {
        "Description": message.text, "Message": message.text,
        "Severity": message.severity, "MessageSeverity": message.severity, "Resolution": message.resolution,
        "NumberOfArgs": count, "ParamTypes": ["string"] * count,
    }
