// SPDX-License-Identifier: Apache-2.0
//
// download HOST PORT USER PATH FILE < PASSWORD: fetches one archive as a host does it, and prints
// the process's peak memory in KiB.
#include <varnex/KEMFfdc.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>

#include "bench/PeakMemory.h"

int main(int argc, char** argv) {
    if (argc != 6) return 2;
    Varnex::VarnexConnection::ConnectionInfo bmc;
    bmc.host = argv[1];
    bmc.port = static_cast<std::uint16_t>(std::atoi(argv[2]));
    bmc.userid = argv[3];
    std::getline(std::cin, bmc.password);

    Varnex::KEMFfdc ffdc(bmc, Varnex::KEMFfdcUploadingUri(), Varnex::BMCLOG_PROCESSOR_DUMP);
    if (ffdc.DownloadFFDC(argv[4], argv[5]) != 0) return 1;
    std::cout << PeakKibibytes() << '\n';
    return 0;
}
