// SPDX-License-Identifier: Apache-2.0
//
// ten_bmcs < LIST: fetches the small archives of some BMCs at the same time, each in a thread with
// an object of its own. A line of LIST is "HOST PORT USER PASSWORD FILE".
#include <varnex/KEMFfdc.h>

#include <iostream>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Collection {
    Varnex::VarnexConnection::ConnectionInfo bmc;
    std::string file;
    bool fetched;
};

// Blocks until the BMC has gathered and the archive is here.
bool Collect(const Varnex::VarnexConnection::ConnectionInfo& bmc, const std::string& file) {
    Varnex::KEMFfdc ffdc(bmc, Varnex::KEMFfdcUploadingUri(), Varnex::BMCLOG_MINI_LOG);
    ffdc.SetTrialInterval(1);
    ffdc.SetTrialCount(1800);  // half an hour
    std::string onBmc;
    return ffdc.Connect() == 0 && ffdc.Apply() == 0 && ffdc.IsFFDCLogExist(onBmc) &&
           ffdc.DownloadFFDC(onBmc, file) == 0;
}

}  // namespace

int main() {
    std::vector<Collection> collections;
    Collection next{};
    while (std::cin >> next.bmc.host >> next.bmc.port >> next.bmc.userid >> next.bmc.password >>
           next.file) {
        collections.push_back(next);
    }

    std::vector<std::thread> threads;
    for (Collection& one : collections) {
        threads.emplace_back([&one] { one.fetched = Collect(one.bmc, one.file); });
    }
    for (std::thread& thread : threads) thread.join();

    bool all = true;
    for (const Collection& one : collections) {
        std::cout << one.bmc.host << ": " << (one.fetched ? one.file : "failed") << '\n';
        all = all && one.fetched;
    }
    return all ? 0 : 1;
}
