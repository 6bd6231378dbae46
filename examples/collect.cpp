// SPDX-License-Identifier: Apache-2.0
//
// collect HOST PORT USER FILE < PASSWORD: fetches the small archive of one BMC.
#include <varnex/KEMFfdc.h>

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) {
    if (argc != 5) return 2;
    Varnex::VarnexConnection::ConnectionInfo bmc;
    bmc.host = argv[1];
    bmc.port = static_cast<std::uint16_t>(std::atoi(argv[2]));
    bmc.userid = argv[3];
    std::getline(std::cin, bmc.password);

    Varnex::KEMFfdc ffdc(bmc, Varnex::KEMFfdcUploadingUri(), Varnex::BMCLOG_MINI_LOG);
    ffdc.SetTrialCount(360);  // one question every 5 s: half an hour
    std::string onBmc;
    if (ffdc.Connect() != 0 || ffdc.Apply() != 0 || !ffdc.IsFFDCLogExist(onBmc)) return 1;
    return ffdc.DownloadFFDC(onBmc, argv[4]);
}
