// SPDX-License-Identifier: Apache-2.0
//
// hostile_host redfish|cim|ipmi HOST PORT USER FOLDER < PASSWORD: a host process that goes through
// every operation of a channel, and says what each returned. Ends with 0 whatever the BMC does.
#include <varnex/KEMFfdc.h>

#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string>

namespace {

using Varnex::KEMFfdc;

template <typename Operation>
void Say(const char* name, Operation operation) {
    std::cout << name << ' ';
    try {
        std::cout << operation();
    } catch (const std::exception& error) {
        std::cout << "threw " << std::string(error.what()).substr(0, 60);
    }
    std::cout << "; " << std::flush;
}

void ConnectAndApply(KEMFfdc& ffdc) {
    Say("Connect", [&] { return ffdc.Connect(); });
    Say("Apply", [&] { return ffdc.Apply(); });
}

void Redfish(const Varnex::VarnexConnection::ConnectionInfo& bmc, const std::string& folder) {
    KEMFfdc ffdc(bmc, Varnex::KEMFfdcUploadingUri(), Varnex::BMCLOG_MINI_LOG);
    ffdc.SetTrialCount(10);
    ffdc.SetTrialInterval(0);
    ConnectAndApply(ffdc);
    std::string onBmc;
    Say("IsFFDCLogExist", [&] { return ffdc.IsFFDCLogExist(onBmc); });
    if (onBmc.empty()) return;
    Say("DownloadFFDC", [&] { return ffdc.DownloadFFDC(onBmc, folder + "/archive"); });
}

void Cim(const Varnex::VarnexConnection::ConnectionInfo& bmc) {
    Varnex::KEMFfdcUploadingUri uri;
    uri.filestore_uri_ = "sftp://127.0.0.1:9/in/";
    KEMFfdc ffdc(bmc, uri, false);
    ConnectAndApply(ffdc);
}

void Ipmi(const Varnex::VarnexConnection::ConnectionInfo& bmc, const std::string& folder) {
    KEMFfdc ffdc(bmc, folder + "/", 2);
    ConnectAndApply(ffdc);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 6) return 2;
    const std::string channel = argv[1];
    Varnex::VarnexConnection::ConnectionInfo bmc;
    bmc.host = argv[2];
    bmc.port = static_cast<std::uint16_t>(std::atoi(argv[3]));
    bmc.userid = argv[4];
    std::getline(std::cin, bmc.password);
    bmc.ciphersuite = 17;
    bmc.connection_type = 1;
    bmc.connection_case = channel == "cim" ? 2 : 1;
    try {
        if (channel == "redfish") Redfish(bmc, argv[5]);
        if (channel == "cim") Cim(bmc);
        if (channel == "ipmi") Ipmi(bmc, argv[5]);
    } catch (const std::exception& error) {
        std::cout << "threw " << error.what() << "; ";
    }
    return 0;
}
