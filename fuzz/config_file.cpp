// SPDX-License-Identifier: Apache-2.0
//
// Any kemffdc.conf. The first line is the name of a host, the rest the file.
#include <cstddef>
#include <cstdint>
#include <string>

#include "Support.h"
#include "cli/config/ConfigFile.h"

namespace {

using Kemffdc::Outcome;
using namespace Kemffdc::Config;

std::string NoNumber(const std::vector<std::string>& words) {
    Require(words.size() == 1 && !words.front().empty());
    return words.front() == "1" ? "" : ": no number.";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::size_t end = input.find('\n');
    const std::string host = input.substr(0, end);
    const MemoryFile text(end == std::string::npos ? "" : input.substr(end + 1));
    const std::vector<Member> members{{"user", false, false, "", {}},
                                      {"port", false, false, "", NoNumber},
                                      {"password_file", true, false, "password_command", {}},
                                      {"password_command", false, true, "password_file", {}},
                                      {"export.uri", false, false, "", {}}};
    File file;
    const Outcome outcome = Read(text.Path(), "/home/op", members, file);
    Require(outcome.Ok() || outcome.reason.find(text.Path()) != std::string::npos);
    if (!outcome.Ok()) return 0;
    const auto holding = Holding(file, members, host);
    Require(holding.count("password_file") + holding.count("password_command") < 2);
    for (const auto& [name, value] : holding) {
        Require(!value.words.empty() && value.line > 0);
        Require(name != "password_file" || value.words.front().front() == '/');
    }
    return 0;
}
