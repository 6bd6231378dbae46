// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_LOADEDLIBRARIES_H
#define VARNEX_PLATFORM_LOADEDLIBRARIES_H

#include <string>
#include <vector>

#pragma GCC visibility push(default)

namespace Varnex {

// A library of somebody else, with the version that this process runs.
struct LoadedLibrary {
    std::string name;     // "libcurl"
    std::string version;  // "7.88.1"
};

// Those that the transfers stand on: libcurl, OpenSSL, libssh. Opens and sends nothing.
std::vector<LoadedLibrary> LoadedLibraries();

// The module that speaks IPMI.
struct IpmiModuleDescription {
    std::string library;  // what it speaks IPMI with, as it was built: "FreeIPMI 1.6.10"
    std::string licence;  // of the module as a whole, as SPDX has it: "GPL-3.0-or-later"
    std::string why;      // why it cannot be loaded; the others are empty then
};

// Loads the module for good, as the first IpmiClient::connect() does.
IpmiModuleDescription DescribeIpmiModule();

}  // namespace Varnex

#pragma GCC visibility pop

#endif
