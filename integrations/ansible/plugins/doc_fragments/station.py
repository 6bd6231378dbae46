# SPDX-License-Identifier: Apache-2.0
"""Options that each module has."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type


class ModuleDocFragment(object):
    DOCUMENTATION = r"""
options:
  executable:
    description: The station's C(kemffdc), by name or path.
    type: str
    default: kemffdc
  state_dir:
    description:
      - Folder of the history, the locks and the known BMCs, as C(--state-dir).
      - By default that of the account that the module runs as.
    type: path
requirements:
  - kemffdc on the station
  - Python 3.6 or later on the station
author:
  - The varnex-ffdc developers (!UNKNOWN)
"""
