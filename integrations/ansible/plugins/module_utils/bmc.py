# SPDX-License-Identifier: Apache-2.0
"""What collect and check have in common: one BMC, its options, and how a run of the tool is told."""

from __future__ import absolute_import, division, print_function

from ansible_collections.varnex.ffdc.plugins.module_utils.kemffdc import (
    options_on_line,
    station_arguments,
)

__metaclass__ = type

# By name as kemffdc.conf has them. What is not given is left to the station's configuration.
_REACHING = dict(
    via=dict(type="str", choices=["auto", "redfish", "ipmi", "cim", "kcs"]),
    port=dict(type="int"),
    user=dict(type="str"),
    password_file=dict(type="path", no_log=False),
    ca_file=dict(type="path"),
    fingerprint=dict(type="str"),
    accept_new_certificate=dict(type="bool"),
    insecure=dict(type="bool"),
    plain=dict(type="bool"),
    node=dict(type="int"),
    operation=dict(type="str", choices=["auto", "oem", "standard", "tree"]),
    log_service=dict(type="str"),
    diagnostic_type=dict(type="str"),
    oem_type=dict(type="str"),
    all_types=dict(type="bool"),
    cipher_suite=dict(type="int"),
    mode=dict(type="int"),
    output=dict(type="path"),
    keep_free=dict(type="str"),
    deadline=dict(type="str"),
    no_proxy=dict(type="bool"),
)
_GATHERING = dict(
    log=dict(type="str", choices=["mini", "full"]),
    tries=dict(type="int"),
    interval=dict(type="int"),
    delete_after=dict(type="bool"),
    initialize=dict(type="bool"),
    name_template=dict(type="str"),
    max_size=dict(type="str"),
)
GATHERING = frozenset(_GATHERING) | frozenset(["wait"])  # what `kemffdc check` does not take
_EXPORT = dict(
    uri=dict(type="str", required=True),
    user=dict(type="str"),
    password=dict(type="str", no_log=True),
    password_file=dict(type="path", no_log=False),
)


def reaching_arguments():
    """The options of check."""
    return dict(
        _REACHING, host=dict(type="str"), password=dict(type="str", no_log=True),
        **station_arguments())


def gathering_arguments():
    """The options of collect that check has not."""
    return dict(
        _GATHERING,
        export=dict(type="dict", options=_EXPORT, mutually_exclusive=[("password", "password_file")]),
        wait=dict(type="bool", default=False),
        max_age=dict(type="str", default="24h"),
    )


def check(tool, params):
    """Whether the BMC can be used; gathers nothing."""
    return tool.run(["check"] + _host(params) + _reaching(params), params["password"])


def collect(tool, params):
    """Makes the BMC gather, and fetches what it has gathered."""
    return _gather(tool, ["collect"] + _host(params), params)


def resume(tool, run, params):
    """Goes on with a run: BMC and account are those of it where nothing else is said."""
    return _gather(tool, ["resume", str(run)], params)


def told(document, **more):
    """What a module returns of a run of the tool, by its JSON or its record."""
    names = ("outcome", "exit_code", "retryable", "reason")
    returned = dict(((name, document.get(name)) for name in names), result=document, **more)
    return dict((name, value) for name, value in returned.items() if value is not None)


def fail_unless_done(module, answer, returned):
    """Ends the module with the tool's own reason, where the run ended with anything but 0."""
    if answer.code != 0:
        module.fail_json(msg=answer.document.get("reason") or answer.words, **returned)


def _host(params):
    return [params["host"]] if params["host"] else []


def _reaching(params):
    return options_on_line(params, sorted(_REACHING) + ["state_dir"])


def _gather(tool, words, params):
    export = params["export"] or {}
    store = dict(("export_" + name, value) for name, value in export.items() if name != "password")
    words = words + _reaching(params) + options_on_line(params, sorted(_GATHERING))
    return tool.run(words + options_on_line(store, sorted(store)), params["password"],
                    export.get("password"))
