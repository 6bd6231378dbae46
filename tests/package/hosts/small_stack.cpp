// SPDX-License-Identifier: Apache-2.0
//
// small_stack HOST PORT USER FOLDER KIB < PASSWORD: collects over IPMI in a thread with a stack of
// KIB KiB. Prints Apply's result and the KiB of the stack that were used.
#include <pthread.h>
#include <sys/mman.h>
#include <varnex/KEMFfdc.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>

namespace {

constexpr char kUntouched = 0x5A;

struct Run {
    Varnex::VarnexConnection::ConnectionInfo bmc;
    std::string folder;
    int result;
};

void* Collect(void* given) {
    Run& run = *static_cast<Run*>(given);
    Varnex::KEMFfdc ffdc(run.bmc, run.folder, 2);
    run.result = ffdc.Connect();
    if (run.result == 0) run.result = ffdc.Apply();
    ffdc.Disconnect();
    return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 6) return 2;
    Run run{};
    run.bmc.host = argv[1];
    run.bmc.port = static_cast<std::uint16_t>(std::atoi(argv[2]));
    run.bmc.userid = argv[3];
    run.bmc.ciphersuite = 17;
    run.bmc.connection_case = 1;
    run.folder = argv[4];
    run.result = -100;
    std::getline(std::cin, run.bmc.password);

    // Its own memory, painted, with a page below it that ends the process.
    const std::size_t size = static_cast<std::size_t>(std::atoi(argv[5])) * 1024;
    const std::size_t guard = 4096;
    void* const memory = mmap(nullptr, guard + size, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (memory == MAP_FAILED || mprotect(memory, guard, PROT_NONE) != 0) return 2;
    char* const stack = static_cast<char*>(memory) + guard;
    std::fill(stack, stack + size, kUntouched);

    pthread_attr_t attributes;
    pthread_t thread;
    if (pthread_attr_init(&attributes) != 0 ||
        pthread_attr_setstack(&attributes, stack, size) != 0 ||
        pthread_create(&thread, &attributes, Collect, &run) != 0) {
        return 2;
    }
    pthread_join(thread, nullptr);

    const char* const deepest =
        std::find_if(stack, stack + size, [](char byte) { return byte != kUntouched; });
    std::cout << run.result << ' ' << (stack + size - deepest + 1023) / 1024 << '\n';
    return 0;
}
