// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_BENCH_PEAKMEMORY_H
#define VARNEX_BENCH_PEAKMEMORY_H

#include <fstream>
#include <string>

// Of this program alone, in KiB. What getrusage(2) tells includes the program that started it.
inline std::string PeakKibibytes() {
    std::ifstream status("/proc/self/status");
    std::string word;
    while (status >> word) {
        if (word == "VmHWM:" && status >> word) return word;
    }
    return "0";
}

#endif
