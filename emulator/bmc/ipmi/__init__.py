# SPDX-License-Identifier: Apache-2.0
"""The BMC's IPMI service over LAN (RMCP+)."""
