#!/usr/bin/python
# SPDX-License-Identifier: Apache-2.0

"""The service data of one BMC."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
module: collect
short_description: Gather the service data of a BMC
description:
  - Runs C(kemffdc collect) and leaves the archive on the station, with its record beside it.
  - A whole archive of this BMC that the station's history has and that is younger than I(max_age) is taken instead;
    then nothing is asked of the BMC. Whole means that it is there, has its recorded size, and was read to its end when it came.
  - An earlier run over Redfish that was interrupted, and is younger than I(max_age), is gone on with. Its task is not started again.
  - A run goes on where the connection to the station is lost. The next play waits for it (I(wait)) or finds its archive.
extends_documentation_fragment:
  - varnex.ffdc.bmc
  - varnex.ffdc.station
options:
  max_age:
    description:
      - How old an archive may be to be taken instead of a new one, such as C(90m), C(24h) or C(7d).
      - C(0) always gathers.
    type: str
    default: 24h
  wait:
    description:
      - Waits while another run is at work on the same BMC, at most for I(deadline), or two hours. What that run
        brings is taken, where it is what was asked for.
      - Otherwise a BMC that is at work for another run is a failure.
    type: bool
    default: false
  log:
    description: Redfish, which service data to gather.
    type: str
    choices: [mini, full]
  tries:
    description: Redfish, how often to ask whether the BMC is done.
    type: int
  interval:
    description: Redfish, seconds between two questions.
    type: int
  delete_after:
    description: Redfish, removes from the BMC what the standard's action has made there, once it is fetched.
    type: bool
  initialize:
    description: CIM, tells the BMC to initialise before it gathers.
    type: bool
  name_template:
    description: Name of the archive.
    type: str
  max_size:
    description: Most bytes of a download, such as C(16G).
    type: str
  export:
    description: Has the BMC send its archive to a file store, instead of a download.
    type: dict
    suboptions:
      uri:
        description: Where the archive goes.
        type: str
        required: true
      user:
        description: Account on the file store.
        type: str
      password:
        description: Its password. It goes to the tool through a pipe.
        type: str
      password_file:
        description: File on the station that holds the password.
        type: path
attributes:
  check_mode:
    description: Runs C(kemffdc check) instead, and says whether an archive would be gathered.
    support: full
  diff_mode:
    description: There is nothing to show.
    support: none
seealso:
  - module: varnex.ffdc.check
  - module: varnex.ffdc.fleet
"""

EXAMPLES = r"""
- name: Have an archive of each BMC that is not older than a day
  varnex.ffdc.collect:
    host: "{{ inventory_hostname }}"
    user: service
    password: "{{ bmc_password }}"
    output: /var/lib/kemffdc/archives
  delegate_to: station.example
  register: archive
  until: archive is succeeded or not archive.retryable | default(false)
  retries: 2
  delay: 60

- name: The logs alone, now
  varnex.ffdc.collect:
    host: 192.0.2.10
    password_file: /etc/kemffdc/rack3.password
    log: mini
    max_age: "0"
  delegate_to: station.example
"""

RETURN = r"""
outcome:
  description: How the run ended that brought the archive, C(downloaded) or C(exported); else why there is none.
  returned: always
  type: str
  sample: downloaded
exit_code:
  description: With which the tool has ended.
  returned: always
  type: int
  sample: 0
retryable:
  description: The same may end better later, without anybody's doing. Never true where an account may get locked.
  returned: always
  type: bool
  sample: false
reason:
  description: What was wrong and what to do, as C(msg).
  returned: failure
  type: str
  sample: "192.0.2.10 does not answer on port 443."
archive:
  description: Path of the archive on the station, or of the folder of files.
  returned: where one has come, or was there
  type: str
  sample: /var/lib/kemffdc/archives/192.0.2.10_20260131T235958Z_ffdc.tar.gz
fresh:
  description: An archive of an earlier run was young enough, so nothing was gathered.
  returned: success
  type: bool
  sample: false
resumed:
  description: The number of the run that was gone on with.
  returned: where there was one
  type: int
  sample: 17
result:
  description:
    - The object that C(kemffdc --json) prints of the run, or its record where the archive was there already.
    - In check mode that of C(kemffdc check).
    - The tool's C(docs/json.md) tells the members in full, and which can be null.
  returned: always
  type: dict
  contains:
    schema:
      description: Number of the schema of this object.
      type: int
      sample: 1
    version:
      description: Of the tool.
      type: str
      sample: 1.0.0
    run:
      description: Number of the run in the station's history.
      type: int
      sample: 12
    command:
      description: Of the tool.
      type: str
      sample: collect
    channel:
      description: How the BMC was reached, C(redfish), C(cim), C(ipmi) or C(kcs).
      type: str
      sample: redfish
    host:
      description: As it was given.
      type: str
      sample: bmc7.example
    address:
      description: That was connected to.
      type: str
      sample: 192.0.2.10
    port:
      description: Of the service.
      type: int
      sample: 443
    user:
      description: On the BMC.
      type: str
      sample: service
    started:
      description: When the run began, UTC.
      type: str
      sample: "2026-01-31T23:58:00Z"
    ended:
      description: When it ended, UTC.
      type: str
      sample: "2026-01-31T23:59:58Z"
    outcome:
      description: How it ended.
      type: str
      sample: downloaded
    exit_code:
      description: With which the tool has ended.
      type: int
      sample: 0
    retryable:
      description: The same may end better later.
      type: bool
      sample: false
    reason:
      description: What was wrong and what to do.
      type: str
    attempts:
      description: Channels that were tried where none was named.
      type: list
      elements: dict
    steps:
      description: Steps that have ended, in order, with their seconds.
      type: list
      elements: dict
    operation:
      description: How the BMC was made to gather, C(oem), C(standard) or C(tree), over Redfish.
      type: str
      sample: oem
    operation_reason:
      description: Why it was that one.
      type: str
    log_kind:
      description: C(full) or C(mini), over Redfish.
      type: str
      sample: full
    task:
      description: The task that gathers, as the BMC shows it.
      type: dict
    path:
      description: Of the archive, or of the folder of files, on the station.
      type: str
      sample: /var/lib/kemffdc/archives/192.0.2.10_20260131T235958Z_ffdc.tar.gz
    remote_path:
      description: Where the BMC kept the archive.
      type: str
    size:
      description: Bytes, of all files.
      type: int
      sample: 1048576
    sha256:
      description: Of the archive.
      type: str
    damage:
      description: What is wrong with the archive.
      type: str
    export_uri:
      description: Where the BMC has left the archive.
      type: str
    bmc:
      description: What the BMC says of itself.
      type: dict
    collections:
      description: What was collected by the standard's action, over Redfish.
      type: list
      elements: dict
    log_services:
      description: Log services of the BMC that offer diagnostic data, over Redfish.
      type: list
      elements: dict
    tree:
      description: What was read of the BMC, where I(operation=tree).
      type: dict
    objects:
      description: Data objects, over CIM.
      type: list
      elements: dict
    files:
      description: Files, over IPMI.
      type: list
      elements: dict
    files_not_tried:
      description: Files of the BMC that nobody came to, over IPMI.
      type: int
    refusals:
      description: Requests that the BMC has refused, over IPMI.
      type: list
      elements: dict
"""

import time

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.varnex.ffdc.plugins.module_utils import bmc
from ansible_collections.varnex.ffdc.plugins.module_utils.earlier import Earlier, record_of
from ansible_collections.varnex.ffdc.plugins.module_utils.kemffdc import Tool
from ansible_collections.varnex.ffdc.plugins.module_utils.times import span_of

BETWEEN_LOOKS = 2  # seconds, while another run is at work
USAGE = 2
LOST = "task-lost"


def told(document, resumed=None):
    return bmc.told(document, archive=document.get("path"), resumed=resumed)


def exit_with_earlier(module, earlier):
    """Where there is an archive that is young enough."""
    run = earlier.whole()
    if run:
        module.exit_json(changed=False, fresh=True, **told(record_of(run)))


def gather(module, tool, earlier):
    """The answer of a run, and the number of the run that it went on with."""
    run = earlier.unfinished()
    if run:
        answer = bmc.resume(tool, run["run"], module.params)
        if answer.code != USAGE and answer.outcome != LOST:
            return answer, run["run"]
    return bmc.collect(tool, module.params), None


def gather_in_turn(module, tool, max_age):
    """The same, after the run that is at work on this BMC now; that may bring the archive."""
    longest = span_of(module, "deadline") if module.params["deadline"] else 7200
    end = time.time() + longest if longest else None
    while True:
        waits = module.params["wait"] and (end is None or time.time() < end)
        earlier = Earlier(tool, module.params, max_age)
        exit_with_earlier(module, earlier)
        if not (waits and earlier.is_at_work()):
            answer, resumed = gather(module, tool, earlier)
            if not (waits and answer.outcome == "locked"):
                return answer, resumed
        time.sleep(BETWEEN_LOOKS)


def main():
    module = AnsibleModule(
        argument_spec=dict(bmc.reaching_arguments(), **bmc.gathering_arguments()),
        mutually_exclusive=[("password", "password_file")],
        supports_check_mode=True,
    )
    tool = Tool(module)
    max_age = span_of(module, "max_age")
    if module.check_mode:
        exit_with_earlier(module, Earlier(tool, module.params, max_age))
        answer, resumed = bmc.check(tool, module.params), None
    else:
        answer, resumed = gather_in_turn(module, tool, max_age)
    returned = told(answer.document, resumed)
    bmc.fail_unless_done(module, answer, returned)
    module.exit_json(changed=True, fresh=False, **returned)


if __name__ == "__main__":
    main()
