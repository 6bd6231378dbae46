# SPDX-License-Identifier: Apache-2.0
"""An emulated BMC: a core (scenario, machine, archives, request record) and one module per service."""
