# SPDX-License-Identifier: Apache-2.0
"""The Redfish service of the BMC."""
