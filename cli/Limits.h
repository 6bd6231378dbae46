// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_LIMITS_H
#define KEMFFDC_LIMITS_H

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "Transfer.h"
#include "cli/ExitCodes.h"

namespace Kemffdc {

// What the downloads of a run may take: bytes in all, and of the disk. While the object watches, a
// download that would take more is stopped, as early as the server announces it, and so is each one
// after it.
class Limits : public Varnex::TransferWatcher {
public:
    // Bytes; 0: no such limit.
    Limits(std::uint64_t maxSize, std::uint64_t keepFree);
    ~Limits() override;

    Limits(const Limits&) = delete;
    Limits& operator=(const Limits&) = delete;

    // Begins to watch downloads into `folder`. kLocalFile if its disk has too little free already.
    Outcome Watch(const std::string& folder);

    // kDownloadFailed or kLocalFile once a limit is reached.
    Outcome Reached() const;

    bool Progress(const Varnex::TransferProgress& progress) override;
    void Ended(const std::string& localPath, const std::error_code& error) override;

private:
    void Count(const std::string& localPath, std::uint64_t bytes);
    bool IsDiskFull(std::uint64_t toCome);
    std::uint64_t FreeBytes() const;

    const std::uint64_t m_maxSize;
    const std::uint64_t m_keepFree;
    bool m_watching = false;
    std::string m_folder;

    mutable std::mutex m_lock;
    std::map<std::string, std::uint64_t> m_running;  // bytes so far, by local path
    std::uint64_t m_total = 0;                       // bytes of all downloads, failed ones too
    std::chrono::steady_clock::time_point m_diskSeen;
    std::uint64_t m_totalThen = 0;  // when the disk was looked at, as the next
    std::uint64_t m_freeThen = 0;
    Outcome m_reached;
};

}  // namespace Kemffdc

#endif
