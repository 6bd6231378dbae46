// SPDX-License-Identifier: Apache-2.0
//
// Any inventory of BMCs. The first line is "csv" or anything else, for YAML; the rest is the file.
#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <set>
#include <string>

#include "Support.h"
#include "cli/fleet/Inventory.h"

namespace {

namespace fs = std::filesystem;

using Kemffdc::Outcome;
using namespace Kemffdc::Fleet;

// Links with the ends that names of inventories have.
class Places {
public:
    Places() : m_folder(fs::temp_directory_path() / ("fuzz-" + std::to_string(getpid()))) {
        fs::create_directory(m_folder);
    }
    ~Places() { fs::remove_all(m_folder); }
    Places(const Places&) = delete;
    Places& operator=(const Places&) = delete;

    std::string LinkTo(const MemoryFile& file, const std::string& name) const {
        const fs::path link = m_folder / name;
        fs::remove(link);
        fs::create_symlink(file.Path(), link);
        return link;
    }

private:
    const fs::path m_folder;
};

std::string NoNumber(const std::vector<std::string>& words) {
    Require(words.size() == 1 && !words.front().empty());
    return words.front() == "1" ? "" : ": no number.";
}

// As a folder, and as a word of a command line.
bool IsFit(const std::string& name) {
    return !name.empty() && name[0] != '-' && name[0] != '.' &&
           std::none_of(name.begin(), name.end(), [](unsigned char c) {
               return c == '/' || std::iscntrl(c) != 0 || c == ' ';
           });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Places places;
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::size_t end = input.find('\n');
    const bool table = input.substr(0, end) == "csv";
    const MemoryFile text(end == std::string::npos ? "" : input.substr(end + 1));
    const std::string path = places.LinkTo(text, table ? "rack.csv" : "fleet.yaml");
    const std::vector<Kemffdc::Config::Member> members{{"via", false, false, "", {}},
                                                       {"port", false, false, "", NoNumber},
                                                       {"ca_file", true, false, "trust", {}},
                                                       {"fingerprint", false, false, "trust", {}}};
    Inventory inventory;
    Faults faults;
    const Outcome outcome = ReadInventory(path, "/home/op", members, inventory, faults);
    Require(outcome.Ok() || outcome.reason.find(path) != std::string::npos);
    Require(!outcome.Ok() || !inventory.hosts.empty() || !faults.None());
    Require(inventory.hosts.size() <= 100000);
    std::set<std::string> names;
    for (const Host& host : inventory.hosts) {
        Require(IsFit(host.name) && IsFit(host.address) && host.line > 0);
        Require(names.insert(host.name).second);
        Require(host.settings.count("ca_file") + host.settings.count("fingerprint") < 2);
    }
    return 0;
}
