// SPDX-License-Identifier: Apache-2.0
#include <sys/resource.h>

#include "DownloadTest.h"
#include "HttpsPeer.h"

// The address sanitizer keeps what was freed for a while, 256 MiB of it unless it is told
// otherwise.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options();
const char* __asan_default_options() { return "quarantine_size_mb=1"; }

namespace {

class FileClientDownloadMemory : public DownloadTest {};

// What the process has held at most, in KiB.
long PeakMemory() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

TEST_F(FileClientDownloadMemory, HalfAGibibyteTakesNoMoreMemoryThanAMebibyte) {
    const HttpsPeer bmc;
    ASSERT_EQ("", Text(Download(bmc.At("/file/1048576"))));
    const long before = PeakMemory();

    ASSERT_EQ("", Text(Download(bmc.At("/file/536870912"))));

    RecordProperty("growth_kib", std::to_string(PeakMemory() - before));
    EXPECT_LT(PeakMemory() - before, 16 * 1024) << "KiB";
    EXPECT_EQ(536870912U, std::filesystem::file_size(target));
}

}  // namespace
