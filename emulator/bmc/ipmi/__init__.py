# SPDX-License-Identifier: Apache-2.0
"""The BMC's IPMI: over LAN (RMCP+) and from the host itself (KCS)."""
