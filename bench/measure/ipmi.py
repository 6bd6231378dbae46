# SPDX-License-Identifier: Apache-2.0
"""Polls over one IPMI session, beside a bare FreeIPMI loop."""

import pathlib
import tempfile

from measure.clock import run
from measure.rows import NotMeasured, Row
from measure.servers import emulated_bmc

SCENARIO = "{user: admin, password: secret, ipmi: {polls: -1}}"


def polls(options):
    """Polls over one IPMI session."""
    program = options.build / "bin" / "bench_ipmi_polls"
    if not program.exists():
        yield NotMeasured("polls", "polls over IPMI", "built without IPMI")
        return
    count, rounds = (1000, 2) if options.quick else (5000, 8)  # even: they take turns
    with tempfile.TemporaryDirectory(prefix="bench-") as name, \
            emulated_bmc(pathlib.Path(name), SCENARIO) as bmc:
        for suite in (3, 17):
            said = run([program, bmc["address"], bmc["ipmi"]["port"], bmc["user"], suite, count,
                        rounds], bmc["password"] + "\n")
            columns = zip(*(map(float, line.split()) for line in said.splitlines()))
            ours, bare, our_work, bare_work = map(list, columns)
            yield Row("polls", f"{count} polls on one session, suite {suite}", ours,
                      {"FreeIPMI": bare}, kind="speed", at_least=0.97)
            yield Row("polls", f"the processor's time of {count} polls, suite {suite}", our_work,
                      {"FreeIPMI": bare_work}, kind="speed")
