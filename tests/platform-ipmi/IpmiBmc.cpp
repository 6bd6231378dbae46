// SPDX-License-Identifier: Apache-2.0
#include "IpmiBmc.h"

#include <fstream>
#include <sstream>

namespace {

std::string Section(const std::string& members) {
    if (members.empty()) return "";
    std::string text = "ipmi:\n";
    std::istringstream stream(members);
    for (std::string line; std::getline(stream, line);) text += "  " + line + "\n";
    return text;
}

}  // namespace

IpmiBmc::IpmiBmc(const std::string& ipmi, const std::string& address)
    : EmulatedBmc(Section(ipmi), {"--bind", address}) {}

std::string IpmiBmc::Port() const { return std::to_string(Number("/ipmi/port")); }

std::string IpmiBmc::Kcs() const { return Text("/ipmi/kcs"); }

std::vector<std::string> IpmiBmc::Requests(const std::string& text) const {
    std::ifstream file(Text("/requests"));
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        if (line.find(text) != std::string::npos) lines.push_back(line);
    }
    return lines;
}
