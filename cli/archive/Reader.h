// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_ARCHIVE_READER_H
#define KEMFFDC_ARCHIVE_READER_H

#include <cstdint>
#include <functional>
#include <string>

namespace Kemffdc::Archives {

// One thing in an archive.
struct Entry {
    enum class Kind { kFile, kFolder, kLink, kOther };
    std::string name;  // as the archive has it: any bytes, at most 4096
    Kind kind = Kind::kFile;
    std::uint64_t size = 0;
};

// How the reading of an archive has ended.
struct Reading {
    enum class State {
        kWhole,     // read to the end, and every check sum was right
        kBroken,    // no archive, damaged, or cut
        kTooLarge,  // it unpacks to more than the limit; what was read was right
        kStopped,
        kUnreadable,  // this machine cannot open or read the file
    };
    State state = State::kWhole;
    std::string reason;       // for every state but kWhole: what follows "the archive ...";
                              // fit for display
    std::uint64_t files = 0;  // entries that are no folders
    std::uint64_t bytes = 0;  // unpacked, with the archive's own headers

    bool Ok() const { return state == State::kWhole; }
};

constexpr std::uint64_t kMaxUnpacked = std::uint64_t{64} << 30;  // bytes

struct Bounds {
    std::uint64_t bytes = kMaxUnpacked;
    std::function<bool()> stop;  // asked every 256 KiB; may be empty
};

// Looks at the entries while they are read.
class Visitor {
public:
    virtual ~Visitor() = default;

    // Called for each entry; true: its content is wanted.
    virtual bool Enter(const Entry& entry) = 0;
    // A piece of the content that was wanted last.
    virtual void Content(const char* data, std::size_t size) = 0;
};

// Whether a file of this name is an archive that can be read: .tgz or .tar.gz, in any case.
bool IsArchiveName(const std::string& name);

// Reads a tar archive, packed by gzip or not packed, to its last byte, on the calling thread and
// with less than 4 MiB of memory. Nothing is written anywhere. `visitor` may be null.
Reading ReadArchive(const std::string& path, const Bounds& bounds, Visitor* visitor = nullptr);

}  // namespace Kemffdc::Archives

#endif
