// SPDX-License-Identifier: Apache-2.0
#include "cli/Arrivals.h"

#include <sys/stat.h>

#include <exception>

#include "cli/Archive.h"

namespace Kemffdc {

Arrivals::Arrivals(const std::function<bool()>& stop) : m_check({Archives::kMaxUnpacked, stop}) {
    Varnex::AddTransferWatcher(this);
}

Arrivals::~Arrivals() { Varnex::RemoveTransferWatcher(this); }

void Arrivals::Completed(const Varnex::TransferResult& result) {
    try {
        const std::lock_guard<std::mutex> hold(m_lock);
        m_files[{result.device, result.inode}] = {result.bytes, result.modified, result.sha256};
        if (Archives::IsArchiveName(result.localPath)) m_check.Begin(result.localPath);
    } catch (const std::exception&) {
        // Not remembered: it will be read later.
    }
}

Outcome Arrivals::Measure(const std::string& path, const std::function<bool()>& stop,
                          std::uint64_t& size, std::string& sha256) const {
    Content content;
    if (!Find(path, content)) return Kemffdc::Measure(path, stop, size, sha256);
    size = content.size;
    sha256 = content.sha256;
    return {};
}

std::optional<Archives::Reading> Arrivals::Reading(const std::string& path) {
    if (!Archives::IsArchiveName(path)) return {};
    if (!m_check.HasBegun(path)) m_check.Begin(path);
    return m_check.Result(path);
}

bool Arrivals::Find(const std::string& path, Content& content) const {
    struct stat now {};
    if (stat(path.c_str(), &now) != 0) return false;
    const std::lock_guard<std::mutex> hold(m_lock);
    const auto file = m_files.find({now.st_dev, now.st_ino});
    if (file == m_files.end()) return false;
    content = file->second;
    constexpr std::int64_t kSecond = 1'000'000'000;
    return content.size == static_cast<std::uint64_t>(now.st_size) &&
           content.modified == now.st_mtim.tv_sec * kSecond + now.st_mtim.tv_nsec;
}

}  // namespace Kemffdc
