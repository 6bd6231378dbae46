// SPDX-License-Identifier: Apache-2.0
#include "LoadedLibraries.h"

#include <curl/curl.h>
#include <libssh/libssh.h>
#include <openssl/crypto.h>

#include <string>
#include <vector>

#include "IpmiModule.h"

namespace Varnex {
namespace {

// "0.10.6/openssl/zlib": what it was built with stands behind.
std::string VersionOfLibssh() {
    const std::string told = ssh_version(0);
    return told.substr(0, told.find('/'));
}

}  // namespace

std::vector<LoadedLibrary> LoadedLibraries() {
    return {{"libcurl", curl_version_info(CURLVERSION_NOW)->version},
            {"OpenSSL", OpenSSL_version(OPENSSL_VERSION_STRING)},
            {"libssh", VersionOfLibssh()}};
}

IpmiModuleDescription DescribeIpmiModule() {
    IpmiModuleDescription description;
    const varnex_ipmi_module* module = LoadIpmiModule(description.why);
    if (module == nullptr) return description;
    description.library = module->library;
    description.licence = module->licence;
    return description;
}

}  // namespace Varnex
