// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_ARCHIVE_WRITER_H
#define KEMFFDC_ARCHIVE_WRITER_H

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>

namespace Kemffdc::Archives {

// Writes a tar archive (POSIX pax), packed by gzip, while its files come: nothing of a file stays
// in memory. What has failed once fails from then on. Throws std::bad_alloc alone.
class Writer {
public:
    // Makes the file at `path`, which must not exist, for this user alone.
    explicit Writer(const std::string& path);
    // Leaves what is written so far, without the end of an archive where Close() was not called.
    ~Writer();

    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    // A file in it: `name` is a path without a slash at either end, `time` that of its last change.
    bool Add(const std::string& name, const std::string& content, std::time_t time);

    // Its end. Nothing may be added afterwards.
    bool Close();

    // Why it has failed, fit for display; empty: it has not.
    const std::string& Trouble() const { return m_trouble; }

    // Of the file, up to now.
    std::uint64_t Bytes() const;

private:
    struct Handle;

    bool Check(int code);

    std::unique_ptr<Handle> m_handle;
    std::string m_trouble;
};

}  // namespace Kemffdc::Archives

#endif
