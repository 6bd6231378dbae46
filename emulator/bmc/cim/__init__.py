# SPDX-License-Identifier: Apache-2.0
"""The CIM object manager: two classes over CIM-XML, as an OpenPegasus server speaks it."""
