#!/usr/bin/python
# SPDX-License-Identifier: Apache-2.0

"""Whether service data can be gathered from a BMC."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
module: check
short_description: See whether service data can be gathered from a BMC
description:
  - Runs C(kemffdc check). The BMC is reached and logged in to; it gathers nothing, and nothing changes.
  - Fails where C(kemffdc collect) would not get as far as gathering, with the tool's reason.
extends_documentation_fragment:
  - varnex.ffdc.bmc
  - varnex.ffdc.station
attributes:
  check_mode:
    description: Does the same in check mode.
    support: full
  diff_mode:
    description: There is nothing to show.
    support: none
seealso:
  - module: varnex.ffdc.collect
"""

EXAMPLES = r"""
- name: See whether the BMC can be used
  varnex.ffdc.check:
    host: "{{ inventory_hostname }}"
    user: service
    password: "{{ bmc_password }}"
  delegate_to: station.example
  register: bmc

- name: Tell what it is
  ansible.builtin.debug:
    msg: "{{ bmc.result.bmc.product }}, serial number {{ bmc.result.bmc.serial }}"
"""

RETURN = r"""
outcome:
  description: How it ended, C(checked) where all is well. The tool's C(docs/json.md) lists the words.
  returned: always
  type: str
  sample: checked
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
  sample: "Wrong user or password."
result:
  description:
    - The object that C(kemffdc check --json) prints; its members are those that M(varnex.ffdc.collect) returns.
  returned: always
  type: dict
  contains:
    channel:
      description: How the BMC was reached.
      type: str
      sample: redfish
    bmc:
      description: What the BMC says of itself.
      type: dict
"""

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.varnex.ffdc.plugins.module_utils import bmc
from ansible_collections.varnex.ffdc.plugins.module_utils.kemffdc import Tool


def main():
    module = AnsibleModule(
        argument_spec=bmc.reaching_arguments(),
        mutually_exclusive=[("password", "password_file")],
        supports_check_mode=True,
    )
    answer = bmc.check(Tool(module), module.params)
    returned = bmc.told(answer.document)
    bmc.fail_unless_done(module, answer, returned)
    module.exit_json(changed=False, **returned)


if __name__ == "__main__":
    main()
