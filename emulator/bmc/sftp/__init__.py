# SPDX-License-Identifier: Apache-2.0
"""The BMC's file service: the gathered files by SFTP."""
