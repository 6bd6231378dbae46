# SPDX-License-Identifier: Apache-2.0
"""What the CIM object manager can do: read its classes, and run ExportData."""

from __future__ import annotations

from functools import cached_property
from typing import Any, Callable, Iterable, Mapping, Sequence

from bmc.cim import errors
from bmc.cim.errors import CimError
from bmc.cim.export import Exporter
from bmc.cim.messages import Call, Parameter, return_value, return_values
from bmc.cim.model import (
    CLASSES, DATA, EXPORT, PARAMETERS, SERVICE, CimClass, Instance, Space, data_instance, service_instances,
)
from bmc.cim.paths import Key, ObjectPath
from bmc.cim.settings import CimSettings
from bmc.cim.values import Property
from bmc.machine import Machine

_NEEDED = ("InitializationNeeded", "ExportURI", "DataCollectionType")
_ENUMERATION = {
    "classname": ObjectPath, "localonly": bool, "deepinheritance": bool,
    "includequalifiers": bool, "includeclassorigin": bool, "propertylist": list,
}
_NAMES = {"classname": ObjectPath}
_CLASS_NAMES = {"classname": ObjectPath, "deepinheritance": bool}
_CLASS = {name: _ENUMERATION[name] for name in _ENUMERATION if name != "deepinheritance"}
_ALL_CLASSES = {name: _ENUMERATION[name] for name in _ENUMERATION if name != "propertylist"}
_INSTANCE = {**{k: v for k, v in _CLASS.items() if k != "classname"}, "instancename": ObjectPath}


class Operations:
    """The content of answers; throws CimError."""

    def __init__(self, settings: CimSettings, exporter: Exporter, machine: Machine, may_export: bool) -> None:
        self._settings = settings
        self._machine = machine
        self._namespaces = [name.lower() for name in settings.namespaces]
        self._check = settings.check
        self._exporter = exporter
        self._may_export = may_export
        data = [data_instance(item, exporter.archives[item.id].size) for item in settings.data]
        self._space = Space.of(CLASSES, {SERVICE: service_instances(settings), DATA: data})
        self._intrinsic: Mapping[str, Callable[..., str]] = {
            "enumerateinstances": self._enumerate,
            "enumerateinstancenames": self._enumerate_names,
            "getinstance": self._get_instance,
            "getclass": self._get_class,
            "enumerateclasses": self._classes,
            "enumerateclassnames": self._class_names,
        }

    async def perform(self, call: Call, extra_instances: int = 0, extra_properties: int = 0) -> str:
        """What stands in the answer's IMETHODRESPONSE or METHODRESPONSE."""
        space = self._space_named(call.namespace)
        if not call.intrinsic:
            return return_value("uint32", str(await self._invoke(space, call)))
        operation = self._intrinsic.get(call.method.lower())
        if operation is None:
            raise CimError(errors.NOT_SUPPORTED, call.method)
        if operation == self._enumerate:
            return return_values(self._enumerate(space, call, extra_instances, extra_properties))
        return return_values(operation(space, call))

    def _space_named(self, namespace: str) -> Space:
        if namespace.lower() in self._namespaces:
            return self._space
        if self._settings.interop is not None and namespace.lower() == self._settings.interop.lower():
            return self._interop
        raise CimError(errors.INVALID_NAMESPACE, namespace)

    @cached_property
    def _interop(self) -> Space:
        from bmc.cim.interop import interop_space

        namespaces = [*self._settings.namespaces, self._settings.interop]
        return interop_space(namespaces, self._settings.system_name, self._machine)

    # --- reading ----------------------------------------------------------------------------

    @staticmethod
    def _enumerate(space: Space, call: Call, extra_instances: int, extra_properties: int) -> str:
        given = _read(call, _ENUMERATION)
        instances = list(space.of_class(_class_name(given)))
        if extra_instances:
            instances += _copies(instances, extra_instances)
        wanted, origin = _wanted(given), given.get("includeclassorigin", False)
        more = _numbered(extra_properties)
        return "".join(
            f"<VALUE.NAMEDINSTANCE>\n{one.path.xml()}{_with(one, more).xml(wanted, origin)}"
            "</VALUE.NAMEDINSTANCE>\n"
            for one in instances
        )

    @staticmethod
    def _enumerate_names(space: Space, call: Call) -> str:
        return "".join(one.path.xml() for one in space.of_class(_class_name(_read(call, _NAMES))))

    @staticmethod
    def _get_instance(space: Space, call: Call) -> str:
        given = _read(call, _INSTANCE)
        if "instancename" not in given:
            raise CimError(errors.INVALID_PARAMETER, "InstanceName")
        path = given["instancename"]
        space.class_named(path.class_name)
        return space.find(path).xml(_wanted(given), given.get("includeclassorigin", False))

    @staticmethod
    def _get_class(space: Space, call: Call) -> str:
        given = _read(call, _CLASS)
        return _class_xml(space.class_named(_class_name(given)), given)

    @staticmethod
    def _classes(space: Space, call: Call) -> str:
        given = _read(call, _ALL_CLASSES)
        return "".join(_class_xml(one, given) for one in _listed(space, given))

    @staticmethod
    def _class_names(space: Space, call: Call) -> str:
        return "".join(f'<CLASSNAME NAME="{one.name}"/>\n' for one in _listed(space, _read(call, _CLASS_NAMES)))

    # --- ExportData -------------------------------------------------------------------------

    async def _invoke(self, space: Space, call: Call) -> int:
        assert call.target is not None
        if call.target.class_name.lower() not in space.classes:
            raise CimError(errors.NOT_FOUND, call.target.class_name)
        service = space.find(call.target)
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
        found = self._space.find(path).data
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


def _listed(space: Space, given: Mapping[str, Any]) -> Iterable[CimClass]:
    """The classes below the one that is named, of which none has any, or those at the top."""
    if "classname" not in given:
        return space.classes.values()
    space.class_named(given["classname"].class_name)
    return ()


def _class_xml(one: CimClass, given: Mapping[str, Any]) -> str:
    qualifiers = given.get("includequalifiers", True)
    return one.xml(_wanted(given), qualifiers, given.get("includeclassorigin", False))


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
