// SPDX-License-Identifier: Apache-2.0
//
// What the IPMI channel makes of a BMC's answers to its three commands. A byte of completion codes
// (bits 0 to 2: the command is refused), the length and the data of the answer to a poll, then the
// data with the account. An account that the data hold goes to the file service as it stands there;
// any other data end the run without one.
#include <stdlib.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fakes/FakeClock.h"
#include "fakes/FakeFiles.h"
#include "fakes/FakeIpmi.h"
#include "fakes/FakeLog.h"
#include "module/kvs/ffdc/ffdcipmi_impl.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t kRefused = 0xC1;

// Removed when the process ends.
struct Folder {
    Folder() {
        char name[] = "/tmp/varnex-fuzz-XXXXXX";
        if (mkdtemp(name) == nullptr) std::abort();
        path = name;
    }
    ~Folder() {
        boost::system::error_code ignored;
        boost::filesystem::remove_all(path, ignored);
    }
    std::string path;
};

struct Account {
    bool held = false;
    std::string user;
    std::string password;
};

Account AccountIn(const Bytes& data) {
    const std::string text(data.begin(), data.end());
    if (data.empty() || 1U + data[0] >= data.size()) return {};
    const std::size_t second = 1U + data[0];
    if (second + 1 + data[second] > data.size()) return {};
    return {true, text.substr(1, data[0]), text.substr(second + 1, data[second])};
}

std::uint8_t Code(std::uint8_t codes, unsigned bit) {
    return (codes >> bit & 1U) != 0 ? kRefused : std::uint8_t{0};
}

void ExpectAccountUsed(const Account& account, int result, const fakes::FakeFiles& files) {
    if (!account.held) {
        if (result != 1 || !files.Listings().empty()) std::abort();
        return;
    }
    const fakes::FileRequest listing = files.Listings().at(0);
    if (result != 0 || listing.user != account.user || listing.password != account.password) {
        std::abort();
    }
}

void ExpectNoPassword(const Account& account, const fakes::FakeLog& log) {
    // Others may stand in the texts by chance, and the fuzzer finds out which.
    const auto inNoText = [](char c) { return static_cast<unsigned char>(c) > 0x7E; };
    if (std::none_of(account.password.begin(), account.password.end(), inNoText)) return;
    if (account.user.find(account.password) != std::string::npos) return;
    for (const fakes::LogLine& line : log.Lines()) {
        if (line.text.find(account.password) != std::string::npos) std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Folder folder;
    if (size < 2) return 0;
    const std::size_t polled = std::min<std::size_t>(data[1], size - 2);
    const Bytes poll(data + 2, data + 2 + polled);
    const Bytes credential(data + 2 + polled, data + size);

    fakes::FakeLog log;
    fakes::FakeClock clock;
    fakes::FakeIpmi bmc;
    fakes::FakeFiles files;
    bmc.Answer(0x49, Code(data[0], 0), {});
    bmc.Answer(0x4D, Code(data[0], 1), poll);
    bmc.Answer(0x79, Code(data[0], 2), credential);
    Varnex::VarnexConnection::ConnectionInfo conn;
    conn.host = "192.0.2.1";
    conn.connection_case = 1;
    Varnex::KEMFfdcIpmiImpl channel(conn, folder.path + "/", 2);
    if (channel.Connect() != 0) std::abort();

    const int result = channel.Apply();

    const Account account = Code(data[0], 2) == 0 ? AccountIn(credential) : Account{};
    ExpectAccountUsed(account, result, files);
    ExpectNoPassword(account, log);
    if (clock.Slept().size() > 180) std::abort();
    return 0;
}
