// SPDX-License-Identifier: Apache-2.0
#include "cli/archive/Reader.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "cli/terminal/Text.h"

namespace Kemffdc::Archives {
namespace {

constexpr std::size_t kPiece = std::size_t{256} * 1024;
constexpr unsigned kPacked = 128 * 1024;  // read from the file at once
constexpr std::size_t kMaxName = 4096;    // PATH_MAX; an archive may hold names of a mebibyte
constexpr std::size_t kShownStart = 40;   // bytes of what is no archive

struct CloseGzip {
    void operator()(gzFile file) const { (void)gzclose_r(file); }
};
struct FreeArchive {
    void operator()(archive* reader) const { (void)archive_read_free(reader); }
};
using Gzip = std::unique_ptr<std::remove_pointer_t<gzFile>, CloseGzip>;
using TarReader = std::unique_ptr<archive, FreeArchive>;

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// The unpacked bytes of a file: zlib's work, because libarchive leaves gzip's check sums unread and
// stops at the end of the tar, before gzip's own. A file that is not packed comes as it is.
class Source {
public:
    Source(const std::string& path, const Bounds& bounds)
        : m_bounds(bounds), m_piece(kPiece), m_file(Open(path)) {
        if (m_file) (void)gzbuffer(m_file.get(), kPacked);
    }

    bool IsOpen() const { return m_file != nullptr; }
    std::uint64_t Bytes() const { return m_bytes; }
    const std::string& Start() const { return m_start; }
    bool IsPacked() const { return gzdirect(m_file.get()) == 0; }

    // The next piece; nothing at the end and after trouble.
    std::size_t Read(const void** piece) {
        *piece = m_piece.data();
        if (!m_trouble.Ok() || MustStop()) return 0;
        const int got = gzread(m_file.get(), m_piece.data(), static_cast<unsigned>(kPiece));
        int code = Z_OK;
        const char* text = gzerror(m_file.get(), &code);
        if (got < 0 || (got == 0 && code != Z_OK)) SetError(code, text);
        if (got <= 0) return 0;
        if (m_bytes == 0)
            m_start.assign(m_piece.data(), std::min<std::size_t>(kShownStart, Count(got)));
        m_bytes += Count(got);
        return Count(got);
    }

    // Why there was nothing more; kWhole at the end.
    const Reading& Trouble() const { return m_trouble; }

private:
    static std::size_t Count(int bytes) { return static_cast<std::size_t>(bytes); }

    static Gzip Open(const std::string& path) {
        const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (file < 0) return nullptr;
        Gzip opened(gzdopen(file, "rb"));
        if (!opened) close(file);
        return opened;
    }

    bool MustStop() {
        if (m_bounds.stop && m_bounds.stop()) {
            m_trouble = {Reading::State::kStopped, "was not read to its end"};
        } else if (m_bytes > m_bounds.bytes) {
            m_trouble = {
                Reading::State::kTooLarge,
                "unpacks to more than " + HumanBytes(m_bounds.bytes) + " and was not read further"};
        }
        return !m_trouble.Ok();
    }

    void SetError(int code, const char* text) {
        if (code == Z_ERRNO) {
            m_trouble = {Reading::State::kUnreadable,
                         std::string("cannot be read: ") + std::strerror(errno)};
        } else if (code == Z_BUF_ERROR) {
            m_trouble = {Reading::State::kBroken, "ends too early: it is cut"};
        } else {
            // zlib puts the name of the file before its words.
            const char* colon = std::strstr(text, ": ");
            m_trouble = {Reading::State::kBroken,
                         std::string("is damaged (") + (colon ? colon + 2 : text) + ")"};
        }
    }

    const Bounds& m_bounds;
    std::vector<char> m_piece;
    Gzip m_file;
    std::string m_start;
    std::uint64_t m_bytes = 0;
    Reading m_trouble;
};

la_ssize_t ReadPiece(archive* reader, void* source, const void** piece) {
    const std::size_t size = static_cast<Source*>(source)->Read(piece);
    const Reading& trouble = static_cast<Source*>(source)->Trouble();
    if (trouble.Ok()) return static_cast<la_ssize_t>(size);
    archive_set_error(reader, EIO, "%s", trouble.reason.c_str());
    return ARCHIVE_FATAL;
}

Entry::Kind KindOf(archive_entry* entry) {
    if (archive_entry_hardlink(entry) != nullptr) return Entry::Kind::kLink;
    switch (archive_entry_filetype(entry)) {
        case AE_IFREG:
            return Entry::Kind::kFile;
        case AE_IFDIR:
            return Entry::Kind::kFolder;
        case AE_IFLNK:
            return Entry::Kind::kLink;
        default:
            return Entry::Kind::kOther;
    }
}

Entry EntryOf(archive_entry* found) {
    Entry entry;
    // The first is null for a name that is no UTF-8, the second for one that is no text here.
    const char* name = archive_entry_pathname_utf8(found);
    if (name == nullptr) name = archive_entry_pathname(found);
    if (name != nullptr) entry.name.assign(name, strnlen(name, kMaxName));
    entry.kind = KindOf(found);
    const la_int64_t size = archive_entry_size(found);
    if (entry.kind == Entry::Kind::kFile && size > 0) entry.size = static_cast<std::uint64_t>(size);
    return entry;
}

// A warning is not worth a word: a name in another character set, an unknown header.
bool IsFine(int code) { return code == ARCHIVE_OK || code == ARCHIVE_WARN; }

int ReadContent(archive* reader, Visitor& visitor) {
    const void* piece = nullptr;
    std::size_t size = 0;
    la_int64_t offset = 0;
    int code = ARCHIVE_OK;
    while (IsFine(code = archive_read_data_block(reader, &piece, &size, &offset))) {
        visitor.Content(static_cast<const char*>(piece), size);
    }
    return code == ARCHIVE_EOF ? ARCHIVE_OK : code;
}

// ARCHIVE_EOF: all entries were read.
int ReadEntries(archive* reader, Visitor* visitor, std::uint64_t& files) {
    archive_entry* found = nullptr;
    int code = ARCHIVE_OK;
    while (IsFine(code = archive_read_next_header(reader, &found))) {
        const Entry entry = EntryOf(found);
        if (entry.kind != Entry::Kind::kFolder) ++files;
        const bool wanted = visitor != nullptr && visitor->Enter(entry);
        code = wanted ? ReadContent(reader, *visitor) : archive_read_data_skip(reader);
        if (!IsFine(code)) break;
    }
    return code;
}

std::string Message(archive* reader) {
    const char* text = archive_error_string(reader);
    return text != nullptr ? Clean(text) : "no reason given";
}

Reading NoTar(const Source& source) {
    if (source.Bytes() == 0) return {Reading::State::kBroken, "is empty"};
    if (source.IsPacked()) return {Reading::State::kBroken, "holds no tar archive"};
    return {Reading::State::kBroken, "is none: it begins with \"" + Clean(source.Start()) + "\""};
}

}  // namespace

bool IsArchiveName(const std::string& name) {
    std::string lower = name;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return EndsWith(lower, ".tgz") || EndsWith(lower, ".tar.gz");
}

Reading ReadArchive(const std::string& path, const Bounds& bounds, Visitor* visitor) {
    Source source(path, bounds);
    if (!source.IsOpen()) {
        return {Reading::State::kUnreadable,
                std::string("cannot be opened: ") + std::strerror(errno)};
    }
    const TarReader reader(archive_read_new());
    if (!reader) return {Reading::State::kUnreadable, "cannot be read: out of memory"};
    archive_read_support_format_tar(reader.get());
    std::uint64_t files = 0;
    int code = archive_read_open(reader.get(), &source, nullptr, ReadPiece, nullptr);
    if (code == ARCHIVE_OK) code = ReadEntries(reader.get(), visitor, files);
    // To the very end: there stands the check sum.
    const void* rest = nullptr;
    while (code == ARCHIVE_EOF && source.Read(&rest) > 0) continue;

    Reading reading = source.Trouble();
    if (reading.Ok() && code != ARCHIVE_EOF) {
        reading =
            archive_format(reader.get()) == 0
                ? NoTar(source)
                : Reading{Reading::State::kBroken, "is damaged (" + Message(reader.get()) + ")"};
    }
    reading.files = files;
    reading.bytes = source.Bytes();
    return reading;
}

}  // namespace Kemffdc::Archives
