// SPDX-License-Identifier: Apache-2.0
#include "cli/Limits.h"

#include <sys/statvfs.h>

#include <filesystem>
#include <limits>

#include "cli/terminal/Text.h"

namespace Kemffdc {
namespace {

using namespace std::chrono_literals;

// How long, and for how many bytes, an answer about the disk holds.
constexpr auto kDiskPause = 500ms;
constexpr std::uint64_t kDiskBytes = std::uint64_t{8} << 20;

}  // namespace

Limits::Limits(std::uint64_t maxSize, std::uint64_t keepFree)
    : m_maxSize(maxSize), m_keepFree(keepFree) {}

Limits::~Limits() {
    if (m_watching) Varnex::RemoveTransferWatcher(this);
}

Outcome Limits::Watch(const std::string& folder) {
    m_folder = folder;
    Varnex::AddTransferWatcher(this);
    m_watching = true;
    const std::uint64_t free = FreeBytes();
    if (free >= m_keepFree) return {};
    return Failure(kLocalFile, Cause::kDiskFull,
                   "The disk of the output folder " + folder + " has " + HumanBytes(free) +
                       " free, and --keep-free asks for " + HumanBytes(m_keepFree) +
                       ". Make room, choose another folder with --output, or lower --keep-free.");
}

Outcome Limits::Reached() const {
    std::lock_guard<std::mutex> hold(m_lock);
    return m_reached;
}

bool Limits::Progress(const Varnex::TransferProgress& progress) {
    std::lock_guard<std::mutex> hold(m_lock);
    Count(progress.localPath, progress.bytes);
    const std::uint64_t toCome =
        progress.expected > progress.bytes ? progress.expected - progress.bytes : 0;
    if (m_reached.Ok() && m_maxSize > 0 && m_total + toCome > m_maxSize) {
        m_reached = Failure(kDownloadFailed, Cause::kTooLarge,
                            "The download was stopped: it is larger than --max-size allows (" +
                                HumanBytes(m_maxSize) +
                                " in all). If the BMC's data may be that large, raise --max-size.");
    }
    if (m_reached.Ok() && IsDiskFull(toCome)) {
        m_reached = Failure(kLocalFile, Cause::kDiskFull,
                            "The download was stopped: it would leave less than --keep-free (" +
                                HumanBytes(m_keepFree) + ") on the disk of " + m_folder +
                                ". Make room, choose another folder with --output, or lower "
                                "--keep-free.");
    }
    return m_reached.Ok();
}

// The last bytes may have come without a call in between.
void Limits::Ended(const std::string& localPath, const std::error_code& error) {
    std::error_code unknown;
    const std::uintmax_t size = error ? 0 : std::filesystem::file_size(localPath, unknown);
    if (!error && !unknown) Progress({localPath, size, size});
    std::lock_guard<std::mutex> hold(m_lock);
    m_running.erase(localPath);
}

void Limits::Count(const std::string& localPath, std::uint64_t bytes) {
    std::uint64_t& before = m_running[localPath];
    if (bytes <= before) return;
    m_total += bytes - before;
    before = bytes;
}

bool Limits::IsDiskFull(std::uint64_t toCome) {
    if (m_keepFree == 0) return false;
    const auto now = std::chrono::steady_clock::now();
    if (now - m_diskSeen >= kDiskPause || m_total - m_totalThen >= kDiskBytes) {
        m_diskSeen = now;
        m_totalThen = m_total;
        m_freeThen = FreeBytes();
    }
    const std::uint64_t taken = m_total - m_totalThen + toCome;
    return m_freeThen < m_keepFree || m_freeThen - m_keepFree < taken;
}

// As many as there can be, where the file system does not tell.
std::uint64_t Limits::FreeBytes() const {
    struct statvfs disk {};
    if (statvfs(m_folder.c_str(), &disk) != 0 || disk.f_blocks == 0) {
        return std::numeric_limits<std::uint64_t>::max();
    }
    return static_cast<std::uint64_t>(disk.f_bavail) * disk.f_frsize;
}

}  // namespace Kemffdc
