// SPDX-License-Identifier: Apache-2.0
#include "cli/archive/Writer.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "cli/terminal/Text.h"

namespace Kemffdc::Archives {
namespace {

struct FreeArchive {
    void operator()(archive* writer) const { (void)archive_write_free(writer); }
};
struct FreeEntry {
    void operator()(archive_entry* entry) const { archive_entry_free(entry); }
};
using Entry = std::unique_ptr<archive_entry, FreeEntry>;

}  // namespace

struct Writer::Handle {
    ~Handle() {
        if (trouble == 0) trouble = ECANCELED;  // no end behind what is not whole
        writer.reset();
        if (file >= 0) close(file);
    }

    // What cannot be written counts as written: libarchive, once it has failed, frees only half of
    // what it holds.
    static la_ssize_t Write(archive*, void* self, const void* bytes, std::size_t size) {
        auto& handle = *static_cast<Handle*>(self);
        const char* at = static_cast<const char*>(bytes);
        for (const char* end = at + size; at < end && handle.trouble == 0;) {
            const ssize_t written = write(handle.file, at, static_cast<std::size_t>(end - at));
            if (written >= 0) {
                at += written;
            } else if (errno != EINTR) {
                handle.trouble = errno;
            }
        }
        return static_cast<la_ssize_t>(size);
    }

    int trouble = 0;  // errno
    int file = -1;
    std::unique_ptr<archive, FreeArchive> writer{archive_write_new()};
};

Writer::Writer(const std::string& path) : m_handle(std::make_unique<Handle>()) {
    archive* writer = m_handle->writer.get();
    if (writer == nullptr) throw std::bad_alloc();
    m_handle->file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (m_handle->file < 0) {
        m_trouble = std::strerror(errno);
        return;
    }
    // Without a time of its own in gzip's header: the files have theirs.
    (void)(Check(archive_write_set_format_pax_restricted(writer)) &&
           Check(archive_write_add_filter_gzip(writer)) &&
           Check(archive_write_set_filter_option(writer, "gzip", "timestamp", nullptr)) &&
           Check(archive_write_set_bytes_in_last_block(writer, 1)) &&  // nothing behind gzip's end
           Check(archive_write_open(writer, m_handle.get(), nullptr, Handle::Write, nullptr)));
}

Writer::~Writer() = default;

bool Writer::Add(const std::string& name, const std::string& content, std::time_t time) {
    if (!m_trouble.empty()) return false;
    const Entry entry(archive_entry_new());
    if (!entry) throw std::bad_alloc();
    archive_entry_set_pathname(entry.get(), name.c_str());
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    archive_entry_set_perm(entry.get(), 0644);
    archive_entry_set_mtime(entry.get(), time, 0);
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(content.size()));
    if (!Check(archive_write_header(m_handle->writer.get(), entry.get()))) return false;
    const la_ssize_t written =
        archive_write_data(m_handle->writer.get(), content.data(), content.size());
    return Check(written < 0 ? ARCHIVE_FATAL : ARCHIVE_OK);
}

bool Writer::Close() {
    if (!m_trouble.empty() || !Check(archive_write_close(m_handle->writer.get()))) return false;
    if (close(std::exchange(m_handle->file, -1)) != 0) m_trouble = std::strerror(errno);
    return m_trouble.empty();
}

std::uint64_t Writer::Bytes() const {
    const la_int64_t bytes = archive_filter_bytes(m_handle->writer.get(), -1);
    return bytes < 0 ? 0 : static_cast<std::uint64_t>(bytes);
}

bool Writer::Check(int code) {
    if (m_handle->trouble != 0) {
        m_trouble = std::strerror(m_handle->trouble);
        return false;
    }
    if (code == ARCHIVE_OK || code == ARCHIVE_WARN) return true;
    const char* text = archive_error_string(m_handle->writer.get());
    m_trouble = text != nullptr ? Clean(text) : "no reason given";
    return false;
}

}  // namespace Kemffdc::Archives
