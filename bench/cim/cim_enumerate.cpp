// SPDX-License-Identifier: Apache-2.0
//
// bench_cim_enumerate PORT: enumerates the instances of one class over plain HTTP on 127.0.0.1.
// Prints how many came and the process's peak memory in KiB; "refused", the latter and the client's
// words where it takes no such answer.
#include <Pegasus/Client/CIMClient.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/PeakMemory.h"

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    try {
        Pegasus::CIMClient client;
        client.connect("127.0.0.1", static_cast<Pegasus::Uint32>(std::atoi(argv[1])), "user",
                       "password");
        const auto instances = client.enumerateInstances("root/cimv2", "ZOR_FFDCData");
        std::printf("%u %s\n", instances.size(), PeakKibibytes().c_str());
    } catch (const Pegasus::Exception& refusal) {
        std::printf("refused %s %s\n", PeakKibibytes().c_str(),
                    static_cast<const char*>(refusal.getMessage().getCString()));
    }
    return 0;
}
