// SPDX-License-Identifier: Apache-2.0
//
// Any file of known host keys. The first line is the name of a host, the second a key's bytes, the
// rest the file.
#include <cstddef>
#include <cstdint>
#include <string>

#include "KnownHosts.h"
#include "Support.h"

namespace {

std::string TakeLine(std::string& text) {
    const std::size_t end = text.find('\n');
    const std::string line = text.substr(0, end);
    text.erase(0, end == std::string::npos ? text.size() : end + 1);
    return line;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    const std::string name = KnownHosts::Name(TakeLine(text), 115);
    const HostKey key(TakeLine(text));
    (void)key.Fingerprint();
    const MemoryFile file(text);
    const KnownHosts hosts(file.Path());

    const KnownHosts::Result before = hosts.Find(name, key);
    Require(!before.error);
    if (before.answer != KnownHosts::Answer::kUnknown) return 0;
    const bool plain = name.find_first_of(" \t\v\f\r,#@|*") == std::string::npos &&
                       name.find('\0') == std::string::npos && !key.Type().empty() &&
                       key.Type().find_first_of(" \t\v\f\r\n") == std::string::npos;
    Require(!hosts.Remember(name, key).error);
    if (plain) Require(hosts.Find(name, key).answer == KnownHosts::Answer::kKnown);
    return 0;
}
