# SPDX-License-Identifier: Apache-2.0
"""Writes each task's result as a line of JSON to the file that VARNEX_RESULTS names."""

import json
import os

from ansible.plugins.callback import CallbackBase

DOCUMENTATION = """
name: results
type: notification
short_description: Results as lines of JSON
description: For tests.
"""


class CallbackModule(CallbackBase):
    CALLBACK_VERSION = 2.0
    CALLBACK_TYPE = "notification"
    CALLBACK_NAME = "results"
    CALLBACK_NEEDS_ENABLED = True

    def _write(self, status, result):
        line = {"host": result._host.get_name(), "task": result.task_name, "status": status,
                "result": self._strip(result._result)}
        with open(os.environ["VARNEX_RESULTS"], "a", encoding="utf-8") as file:
            file.write(json.dumps(line) + "\n")

    @staticmethod
    def _strip(result):
        return {name: value for name, value in result.items() if not name.startswith("_ansible")}

    def v2_runner_on_ok(self, result):
        self._write("ok", result)

    def v2_runner_on_failed(self, result, ignore_errors=False):
        self._write("failed", result)

    def v2_runner_on_unreachable(self, result):
        self._write("unreachable", result)
