# SPDX-License-Identifier: Apache-2.0
"""Options of the modules for one BMC."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type


class ModuleDocFragment(object):
    DOCUMENTATION = r"""
notes:
  - The module runs on a management station that reaches the BMC, so a play whose hosts are BMCs delegates it there.
  - Options have the names and values of C(kemffdc.conf). What is not given here is taken from the station's
    configuration, then from the tool's defaults.
  - A flag that is false counts as not given.
options:
  host:
    description: Name or address of the BMC. Not given for the station's own BMC (I(via=kcs)).
    type: str
  password:
    description:
      - Password of the account on the BMC. It goes to the tool on its standard input.
      - Without it, the station's configuration says where the password is from.
    type: str
  password_file:
    description: File on the station that holds the password.
    type: path
  via:
    description: How to reach the BMC.
    type: str
    choices: [auto, redfish, ipmi, cim, kcs]
  port:
    description: Port of the BMC's service.
    type: int
  user:
    description: Account on the BMC.
    type: str
  ca_file:
    description: PEM file, on the station, of the CAs that the BMC's certificate is checked against.
    type: path
  fingerprint:
    description: SHA-256 of the one certificate to take.
    type: str
  accept_new_certificate:
    description: Takes the BMC's certificate where another one is known, and remembers it.
    type: bool
  insecure:
    description: Checks no certificate; the password goes to whoever answers.
    type: bool
  plain:
    description: CIM without TLS.
    type: bool
  node:
    description: CIM, number of a node in an enclosure of several.
    type: int
  operation:
    description: >
      Redfish, how the BMC is made to gather: its own export (C(oem)), the standard's action (C(standard)), all that can
      be read of it (C(tree)), or the first of them that it has (C(auto)).
    type: str
    choices: [auto, oem, standard, tree]
  log_service:
    description: Redfish, the log service whose diagnostic data are collected by the standard's action.
    type: str
  diagnostic_type:
    description: Redfish, which diagnostic data the standard's action collects.
    type: str
  oem_type:
    description: Redfish, the vendor's name for them.
    type: str
  all_types:
    description: Redfish, all types of diagnostic data that the BMC offers.
    type: bool
  cipher_suite:
    description: IPMI over the LAN, how the session is protected.
    type: int
  mode:
    description: IPMI, which account and which files.
    type: int
  output:
    description: Folder on the station for archives; made if its parent exists.
    type: path
  keep_free:
    description: Bytes of the output folder's disk that stay free, such as C(1G).
    type: str
  deadline:
    description: Longest time of a run, such as C(45m) or C(2h).
    type: str
  no_proxy:
    description: Ignores the proxies of the environment.
    type: bool
"""
