#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""exports_test.py LIBRARY HEADERS: the library exports what the headers declare and nothing else.

A symbol belongs to a header when each of its names stands there, and lies in a namespace of ours: a
global one would be taken over by a host that has a class of that name.
"""

import pathlib
import re
import subprocess
import sys

VERSION = 'VARNEXPLATFORM_1.0'
OURS = 'varnex_platform::'  # no class of a host's own has these names
EXPECTED = [OURS + name for name in (
    'Log::Log', 'Uri::Uri', 'Uri::set_query', 'file_client::download', 'Clock::Now', 'Ipmanip::is_ipv6',
    'GetGlobalConfigValue', 'XM_WIDGETS::GetKEMAccountViaKCS')] + [
    'Varnex::AddLogSink', 'Varnex::AddTransferWatcher', 'Varnex::MaskedForDisplay', 'Varnex::HideInLog',
            'Varnex::WithoutHiddenSecrets', 'Varnex::AddIpmiWatcher', 'Varnex::IpmiCategory',
            'Varnex::make_error_condition', 'Varnex::TransferCategory', 'Varnex::HttpStatusOf', 'Varnex::LoadedLibraries',
            'Varnex::DescribeIpmiModule']


def exported(library):
    lines = subprocess.run(['nm', '-DC', '--defined-only', library], check=True,
                           capture_output=True, text=True).stdout.splitlines()
    symbols = [line.split(' ', 2)[2] for line in lines]
    symbols.remove(VERSION)  # a symbol of its own
    return symbols


def belongs(symbol, declared):
    name, _, version = symbol.partition('@@')
    if version != VERSION:
        return False
    name = re.sub(r'^(typeinfo name for|typeinfo for|vtable for) ', '', name)
    name = re.sub(r'\[abi:.*?\]|\(.*', '', name)
    if not name.startswith((OURS, 'Varnex::')):
        return False
    return all(part.lstrip('~') in declared for part in name.split('::'))


def main():
    library, headers = sys.argv[1], pathlib.Path(sys.argv[2])
    text = '\n'.join(path.read_text() for path in sorted(headers.glob('*.h')))
    code = re.sub(r'//.*', '', text)
    declared = set(re.findall(r'\w+', code)) | {'operator='}
    symbols = exported(library)
    strangers = [symbol for symbol in symbols if not belongs(symbol, declared)]
    for symbol in strangers:
        print('exported, but in no header, no namespace of ours or no version:', symbol)
    missing = [name for name in EXPECTED
               if not any(symbol.startswith(name + '(') for symbol in symbols)]
    for name in missing:
        print('not exported:', name)
    sys.exit(1 if strangers or missing else 0)


main()
