// SPDX-License-Identifier: Apache-2.0
#include "ArrivingFile.h"

#include <curl/curl.h>

#include <utility>

#include "TransferError.h"
#include "Validator.h"
#include "transfer_settings.h"

ArrivingFile::ArrivingFile(const std::string& localPath, transfer_watchers::PartWish wish)
    : m_localPath(localPath), m_wish(std::move(wish)) {
    if (!IsValidator(m_wish.validator)) m_wish.validator.clear();
}

std::error_code ArrivingFile::Open() {
    const bool continued = !m_wish.validator.empty();
    const std::error_code error =
        continued ? m_file.Continue(m_localPath) : m_file.Create(m_localPath);
    if (error) return error;
    if ((continued || transfer_watchers::Any()) && !m_file.Hash()) {
        return std::make_error_code(std::errc::not_enough_memory);
    }
    m_bytes = m_file.Kept();
    const std::error_code read = m_file.HashKept([this] { return GoOn(0); });
    if (read == std::errc::operation_canceled) return StoppedError();
    m_diskError = read;
    return read;
}

bool ArrivingFile::Restart() {
    m_bytes = 0;
    m_expected = 0;
    m_wish.validator.clear();
    m_diskError = m_file.Restart();
    return !m_diskError;
}

void ArrivingFile::Begin(const std::string& validator, std::uint64_t expected) {
    m_wish.validator = validator;
    m_expected = expected;
    transfer_watchers::PartBegun(Part());
}

bool ArrivingFile::Take(const char* data, std::size_t size) {
    m_diskError = m_file.Append(data, size);
    if (!m_diskError) m_bytes += size;
    return !m_diskError;
}

bool ArrivingFile::GoOn(std::uint64_t expected) const {
    return transfer_watchers::Progress(m_localPath, m_bytes, expected);
}

std::error_code ArrivingFile::Complete() {
    const std::error_code error = m_file.Commit(IsSynced());
    if (!error) TellResult();
    return error;
}

void ArrivingFile::TellResult() const {
    constexpr std::int64_t kSecond = 1000000000;  // nanoseconds
    const struct stat& status = m_file.Status();
    const std::int64_t modified = status.st_mtim.tv_sec * kSecond + status.st_mtim.tv_nsec;
    if (m_file.Sha256().empty()) return;
    transfer_watchers::Completed(
        {m_localPath, m_bytes, m_file.Sha256(), status.st_dev, status.st_ino, modified});
}

void ArrivingFile::KeepPart() {
    if (!m_wish.keep || m_bytes == 0 || m_file.Keep(IsSynced())) return;
    transfer_watchers::PartKept(Part());
}
