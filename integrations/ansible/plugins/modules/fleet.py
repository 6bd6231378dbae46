#!/usr/bin/python
# SPDX-License-Identifier: Apache-2.0

"""The service data of all BMCs of a station, or of its share of them."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
module: fleet
short_description: Gather the service data of all BMCs of a station
description:
  - Runs C(kemffdc fleet collect) on a management station, for the BMCs of a list there, or for the station's share of them.
  - The newest run below I(output) that has all these BMCs and is younger than I(max_age) is taken up. One that works still is
    waited for. One that has ended, or was killed, is gone on with where BMCs are not done. Nothing is gathered twice.
  - A run goes on where the connection to the station is lost.
extends_documentation_fragment:
  - varnex.ffdc.station
options:
  inventory:
    description: List of BMCs on the station, C(.yaml) or C(.csv).
    type: path
  hosts:
    description: BMCs instead of a list, such as C(bmc[001-400].example).
    type: str
  group:
    description: The BMCs of these groups of the list alone.
    type: list
    elements: str
  limit:
    description: BMCs alone whose names match, such as C(bmc0*).
    type: str
  exclude:
    description: Without BMCs whose names match.
    type: str
  shard:
    description: This station's share, C(2/3) for the second of three. A BMC is always in the same share.
    type: str
  credentials:
    description: File of named accounts on the station, which only the account that the module runs as may read.
    type: path
  output:
    description: Folder on the station that the folder of a run is made in.
    type: path
    required: true
  settings:
    description: Members of C(kemffdc.conf) that hold for each of these BMCs that they fit, such as C(operation), C(log) or C(interval).
    type: dict
    default: {}
  command:
    description: C(check) sees which of the BMCs can be used, and gathers nothing.
    type: str
    choices: [collect, check]
    default: collect
  max_age:
    description:
      - How long ago a run may have begun to be taken up, such as C(90m), C(24h) or C(7d).
      - C(0) always begins a new one, unless one works still.
    type: str
    default: 24h
  allow_partial:
    description: Succeeds also where some of the BMCs are not done, but never where none is.
    type: bool
    default: false
  gathering:
    description: BMCs at once that gather.
    type: int
  transfers:
    description: BMCs at once that are downloaded from.
    type: int
  starts:
    description: BMCs a second that are begun with.
    type: int
  retries:
    description: Further tries of a BMC where another one may end better.
    type: int
  retry_pause:
    description: Time before the first of them.
    type: str
  host_deadline:
    description: Longest time of all tries of a BMC.
    type: str
  run_deadline:
    description: Longest time of the run.
    type: str
  keep:
    description: How many good archives of each BMC stay.
    type: int
  metrics:
    description: File on the station that the outcomes are written to for Prometheus.
    type: path
  on_finish:
    description: Program on the station that is run with the report's path.
    type: path
attributes:
  check_mode:
    description: Runs C(kemffdc fleet check) instead, and says whether anything would be gathered.
    support: full
  diff_mode:
    description: There is nothing to show.
    support: none
notes:
  - Options have the names of those of C(kemffdc fleet collect), whose defaults hold where they are not given.
  - A run takes as long as its slowest BMC. Have ssh notice a lost connection (C(ServerAliveInterval)); the next play takes
    the run up. With C(async) a play outlives short losses, but waits for a station that stays away until the limit of C(async).
seealso:
  - module: varnex.ffdc.collect
"""

EXAMPLES = r"""
- name: Have an archive of each BMC of this site that is not older than a day
  varnex.ffdc.fleet:
    inventory: /etc/kemffdc/fleet.yaml
    credentials: /etc/kemffdc/credentials.yaml
    output: /var/lib/kemffdc/runs

- name: Divide one list among all stations
  varnex.ffdc.fleet:
    inventory: /etc/kemffdc/fleet.csv
    credentials: /etc/kemffdc/credentials.yaml
    output: /var/lib/kemffdc/runs
    shard: "{{ groups.stations.index(inventory_hostname) + 1 }}/{{ groups.stations | length }}"
    settings:
      log: mini
    allow_partial: true
"""

RETURN = r"""
fleet:
  description: Number of the run in the station's history.
  returned: where there was a run
  type: int
  sample: 12
folder:
  description: Of the run on the station, with a folder for each BMC.
  returned: where there was a run
  type: str
  sample: /var/lib/kemffdc/runs/fleet_20260131T020000Z
report:
  description: Path of C(report.json) on the station.
  returned: where it was written
  type: str
  sample: /var/lib/kemffdc/runs/fleet_20260131T020000Z/report.json
total:
  description: How many BMCs were asked for.
  returned: always
  type: int
  sample: 400
done:
  description: How many of them are done, in this run of the module or before.
  returned: always
  type: int
  sample: 397
exit_code:
  description: With which the tool has ended; 0 all, 20 some, 21 none.
  returned: where there was a run
  type: int
  sample: 20
reason:
  description: What was wrong, as C(msg).
  returned: failure
  type: str
outcomes:
  description: What became of the BMCs, folded, the most frequent outcome first.
  returned: where there was a run
  type: list
  elements: dict
  contains:
    outcome:
      description: The word for it.
      type: str
      sample: login-refused
    title:
      description: The same for people.
      type: str
      sample: wrong password
    count:
      description: How many they are.
      type: int
      sample: 3
    hosts:
      description: Their names.
      type: str
      sample: bmc[003,017-018]
fresh:
  description: An earlier run had all of them, so the tool was not started.
  returned: always
  type: bool
  sample: false
resumed:
  description: An earlier run was gone on with.
  returned: always
  type: bool
  sample: false
"""

import os
import time

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.varnex.ffdc.plugins.module_utils import fleet
from ansible_collections.varnex.ffdc.plugins.module_utils.kemffdc import Tool
from ansible_collections.varnex.ffdc.plugins.module_utils.times import span_of

BETWEEN_LOOKS = 2  # seconds, while a run is at work


class Work(object):
    """What the module does about the station's share, and what it tells of it."""

    def __init__(self, module):
        self._module = module
        self._share = fleet.Share(Tool(module), module.params)
        self._max_age = span_of(module, "max_age")
        self._returned = dict(fresh=False, resumed=False, total=0, done=0)

    def run(self):
        planned = self._share.plan()
        if planned.code != 0:
            self._fail(planned.document.get("reason") or planned.words, exit_code=planned.code)
        self._returned["total"] = len(self._share.names)
        if self._module.params["command"] == "check":
            self._end(self._share.check(), changed=False)
        run = self._share.newest_run(self._max_age)
        if self._module.check_mode:
            if self._is_done(run):
                self._exit_with(run, changed=False, fresh=True)
            self._end(self._share.check(), changed=True)
        self._gather(run)

    def _gather(self, run):
        before = self._share.done(run) if run else 0
        answer = None
        while answer is None:
            run = self._ended(run)
            if self._is_done(run):
                self._exit_with(run, changed=self._share.done(run) > before, fresh=True)
            self._returned["resumed"] = run is not None
            answer = self._share.resume(run) if run else self._share.collect()
            if answer.code == fleet.LOCAL:
                run = self._share.newest_run(self._max_age)
                answer = None if run and run["live"] else answer  # somebody was faster
        done = self._share.done(answer.document)
        self._end(answer, changed=done > before)

    def _ended(self, run):
        """The run, once nobody works on it any more."""
        while run and run["live"]:
            time.sleep(BETWEEN_LOOKS)
            run = self._share.look_at(run["folder"])
        return run

    def _is_done(self, run):
        return bool(run) and self._share.done(run) == self._returned["total"]

    def _tell(self, run):
        self._returned["done"] = self._share.done(run)
        for name in ("fleet", "folder", "exit_code", "outcomes"):
            if run.get(name) is not None:
                self._returned[name] = run[name]
        report = os.path.join(run.get("folder") or "", "report.json")
        if run.get("folder") and os.path.exists(report):
            self._returned["report"] = report

    def _exit_with(self, run, changed, fresh):
        self._tell(run)
        self._module.exit_json(**dict(self._returned, changed=changed, fresh=fresh))

    def _end(self, answer, changed):
        self._tell(answer.document)
        self._returned["changed"] = changed
        partial = answer.code == fleet.SOME and self._module.params["allow_partial"]
        if answer.code == 0 or partial:
            self._module.exit_json(**self._returned)
        self._fail(answer.document.get("reason") or answer.words, exit_code=answer.code)

    def _fail(self, reason, exit_code):
        self._module.fail_json(msg=reason, **dict(self._returned, reason=reason, exit_code=exit_code))


def main():
    module = AnsibleModule(
        argument_spec=fleet.arguments(),
        required_one_of=[("inventory", "hosts")],
        mutually_exclusive=[("inventory", "hosts")],
        supports_check_mode=True,
    )
    Work(module).run()


if __name__ == "__main__":
    main()
