# SPDX-License-Identifier: Apache-2.0
"""What the CIM object manager can do: read its two classes, and run ExportData."""

from __future__ import annotations

from typing import Any, Callable, Mapping, Sequence

from bmc.cim import errors
from bmc.cim.errors import CimError
from bmc.cim.export import Exporter
from bmc.cim.messages import Call, Parameter, return_value, return_values
from bmc.cim.model import (
    CLASSES, DATA, EXPORT, PARAMETERS, SERVICE, CimClass, Instance, data_instance, service_instances,
)
from bmc.cim.paths import Key, ObjectPath
from bmc.cim.settings import CimSettings
from bmc.cim.values import Property

_NEEDED = ("InitializationNeeded", "ExportURI", "DataCollectionType")
_ENUMERATION = {
    "classname": ObjectPath, "localonly": bool, "deepinheritance": bool,
    "includequalifiers": bool, "includeclassorigin": bool, "propertylist": list,
}
_NAMES = {"classname": ObjectPath}
_CLASS = {name: _ENUMERATION[name] for name in _ENUMERATION if name != "deepinheritance"}
_INSTANCE = {**{k: v for k, v in _CLASS.items() if k != "classname"}, "instancename": ObjectPath}


class Operations:
    """The content of answers; throws CimError."""

    def __init__(self, settings: CimSettings, exporter: Exporter, may_export: bool) -> None:
        self._namespaces = [name.lower() for name in settings.namespaces]
        self._check = settings.check
        self._exporter = exporter
        self._may_export = may_export
        data = [data_instance(item, exporter.archives[item.id].size) for item in settings.data]
        self._instances: Mapping[str, Sequence[Instance]] = {
            SERVICE.lower(): service_instances(settings),
            DATA.lower(): data,
        }
        self._intrinsic: Mapping[str, Callable[..., str]] = {
            "enumerateinstances": self._enumerate,
            "enumerateinstancenames": self._enumerate_names,
            "getinstance": self._get_instance,
            "getclass": self._get_class,
            "enumerateclassnames": self._class_names,
        }

    async def perform(self, call: Call, extra_instances: int = 0, extra_properties: int = 0) -> str:
        """What stands in the answer's IMETHODRESPONSE or METHODRESPONSE."""
        if call.namespace.lower() not in self._namespaces:
            raise CimError(errors.INVALID_NAMESPACE, call.namespace)
        if not call.intrinsic:
            return return_value("uint32", str(await self._invoke(call)))
        operation = self._intrinsic.get(call.method.lower())
        if operation is None:
            raise CimError(errors.NOT_SUPPORTED, call.method)
        if operation == self._enumerate:
            return return_values(self._enumerate(call, extra_instances, extra_properties))
        return return_values(operation(call))

    # --- reading ----------------------------------------------------------------------------

    def _enumerate(self, call: Call, extra_instances: int, extra_properties: int) -> str:
        given = _read(call, _ENUMERATION)
        instances = list(self._of_class(given))
        if extra_instances:
            instances += _copies(instances, extra_instances)
        wanted, origin = _wanted(given), given.get("includeclassorigin", False)
        more = _numbered(extra_properties)
        return "".join(
            f"<VALUE.NAMEDINSTANCE>\n{one.path.xml()}{_with(one, more).xml(wanted, origin)}"
            "</VALUE.NAMEDINSTANCE>\n"
            for one in instances
        )

    def _enumerate_names(self, call: Call) -> str:
        return "".join(one.path.xml() for one in self._of_class(_read(call, _NAMES)))

    def _get_instance(self, call: Call) -> str:
        given = _read(call, _INSTANCE)
        if "instancename" not in given:
            raise CimError(errors.INVALID_PARAMETER, "InstanceName")
        path = given["instancename"]
        self._class(path.class_name)
        return self._find(path).xml(_wanted(given), given.get("includeclassorigin", False))

    def _get_class(self, call: Call) -> str:
        given = _read(call, _CLASS)
        one = self._class(_class_name(given))
        qualifiers = given.get("includequalifiers", True)
        return one.xml(_wanted(given), qualifiers, given.get("includeclassorigin", False))

    def _class_names(self, call: Call) -> str:
        given = _read(call, {"classname": ObjectPath, "deepinheritance": bool})
        if "classname" in given:
            self._class(given["classname"].class_name)
            return ""  # neither class has others below it
        return "".join(f'<CLASSNAME NAME="{one.name}"/>\n' for one in CLASSES.values())

    def _of_class(self, given: Mapping[str, Any]) -> Sequence[Instance]:
        return self._instances[self._class(_class_name(given)).name.lower()]

    @staticmethod
    def _class(name: str) -> CimClass:
        if name.lower() not in CLASSES:
            raise CimError(errors.INVALID_CLASS, name)
        return CLASSES[name.lower()]

    def _find(self, path: ObjectPath) -> Instance:
        for one in self._instances.get(path.class_name.lower(), ()):
            if one.path.identity == path.identity:
                return one
        raise CimError(errors.NOT_FOUND, str(ObjectPath(path.class_name, path.keys)))

    # --- ExportData -------------------------------------------------------------------------

    async def _invoke(self, call: Call) -> int:
        assert call.target is not None
        if call.target.class_name.lower() not in CLASSES:
            raise CimError(errors.NOT_FOUND, call.target.class_name)
        service = self._find(call.target)
        if service.path.class_name != SERVICE or call.method.lower() != EXPORT.lower():
            raise CimError(errors.METHOD_NOT_AVAILABLE, call.method)
        if not self._may_export:
            raise CimError(errors.ACCESS_DENIED, call.method)
        if not self._check:
            return 0
        given = _export_parameters(call.parameters)
        item = self._data_object(given["DataCollectionType"])
        return await self._exporter.export(
            item, given["ExportURI"], given["Username"], given["Password"]
        )

    def _data_object(self, path: ObjectPath) -> Any:
        if path.class_name.lower() != DATA.lower():
            raise CimError(errors.INVALID_PARAMETER, "DataCollectionType")
        if path.namespace is not None and path.namespace.lower() not in self._namespaces:
            raise CimError(errors.INVALID_PARAMETER, "DataCollectionType")
        found = self._find(path).data
        assert found is not None
        return found


def _read(call: Call, known: Mapping[str, type]) -> dict[str, Any]:
    """The parameters of an intrinsic operation, by their names in lower case."""
    given = {}
    for parameter in call.parameters:
        name = parameter.name.lower()
        kind = known.get(name)
        if kind is None or name in given:
            raise CimError(errors.INVALID_PARAMETER, parameter.name)
        value = parameter.value
        if kind is bool:
            value = _flag(value)
        if value is None:
            continue  # as if it had not been given
        if not isinstance(value, kind):
            raise CimError(errors.INVALID_PARAMETER, parameter.name)
        given[name] = value
    return given


def _class_name(given: Mapping[str, Any]) -> str:
    if "classname" not in given:
        raise CimError(errors.INVALID_PARAMETER, "ClassName")
    return given["classname"].class_name


def _wanted(given: Mapping[str, Any]) -> list[str] | None:
    names = given.get("propertylist")
    return None if names is None else [name.lower() for name in names]


def _export_parameters(parameters: Sequence[Parameter]) -> dict[str, Any]:
    """ExportData's parameters; those of some clients come without their types."""
    given: dict[str, Any] = {}
    for parameter in parameters:
        name = next((n for n in PARAMETERS if n.lower() == parameter.name.lower()), None)
        if name is None or name in given:
            raise CimError(errors.INVALID_PARAMETER, parameter.name)
        given[name] = _export_value(name, parameter)
    for name in _NEEDED:
        if given.get(name) is None:
            raise CimError(errors.INVALID_PARAMETER, name)
    return {"Username": "", "Password": "", **{k: v for k, v in given.items() if v is not None}}


def _export_value(name: str, parameter: Parameter) -> Any:
    type_, value = PARAMETERS[name], parameter.value
    if parameter.type is not None and parameter.type != type_:
        raise CimError(errors.INVALID_PARAMETER, parameter.name)
    if value is None:
        return None
    if type_ == "boolean":
        value = _flag(value)
    fits = isinstance(value, {"boolean": bool, "string": str, "reference": ObjectPath}[type_])
    if not fits or (isinstance(value, str) and "\0" in value):
        raise CimError(errors.INVALID_PARAMETER, parameter.name)
    return value


def _flag(value: Any) -> Any:
    """TRUE and FALSE in any case; anything else stays what it is."""
    return {"true": True, "false": False}.get(value.lower(), value) if isinstance(value, str) else value


def _copies(instances: Sequence[Instance], count: int) -> list[Instance]:
    """More objects of the same kind, each with a key of its own."""
    if not instances:
        return []
    model = instances[0]
    name, *_ = model.path.keys if len(model.path.keys) == 1 else ["Name"]
    copies = []
    for number in range(count):
        value = f"{model.path.keys[name].value}:copy{number}"
        path = ObjectPath(model.path.class_name, {**model.path.keys, name: Key(value)})
        properties = [
            Property(name, "string", value) if one.name == name else one for one in model.properties
        ]
        copies.append(Instance(path, properties, model.data))
    return copies


def _numbered(count: int) -> list[Property]:
    return [Property(f"Extra{number}", "string", f"value {number}") for number in range(count)]


def _with(instance: Instance, more: Sequence[Property]) -> Instance:
    if not more:
        return instance
    return Instance(instance.path, [*instance.properties, *more], instance.data)
