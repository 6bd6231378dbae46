// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_ARRIVINGFILE_H
#define VARNEX_PLATFORM_SRC_ARRIVINGFILE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <system_error>

#include "PartFile.h"
#include "transfer_watchers.h"

// The near end of a download: where the bytes go, and who is told of them. Destroyed before it is
// complete it leaves nothing, unless KeepPart() was called.
class ArrivingFile {
public:
    // `localPath` outlives the object.
    ArrivingFile(const std::string& localPath, transfer_watchers::PartWish wish);

    // Finds out about this machine's trouble before a server is asked, and reads what is continued.
    std::error_code Open();

    // Of the file: those that are continued and those that came.
    std::uint64_t Bytes() const { return m_bytes; }

    // Which state of the file the bytes are of; empty where nothing is known of it.
    const std::string& Validator() const { return m_wish.validator; }

    // A part is to be kept: somebody wants to hear of it.
    bool IsPartWanted() const { return m_wish.keep; }

    // What was there is gone.
    bool Restart();

    // The server is about to send bytes of the file in this state.
    void Begin(const std::string& validator, std::uint64_t expected);

    // False: the disk is at fault.
    bool Take(const char* data, std::size_t size);

    // False: a watcher wants the download to stop.
    bool GoOn(std::uint64_t expected) const;

    // Of the calls that have answered false for it.
    const std::error_code& DiskError() const { return m_diskError; }

    // Gives the file its name.
    std::error_code Complete();

    // After a failure of the other end: lets the bytes stand where that is wanted.
    void KeepPart();

private:
    Varnex::PartialFile Part() const {
        return {m_localPath, m_bytes, m_expected, m_wish.validator};
    }
    void TellResult() const;

    const std::string& m_localPath;
    transfer_watchers::PartWish m_wish;
    PartFile m_file;
    std::error_code m_diskError;
    std::uint64_t m_bytes = 0;
    std::uint64_t m_expected = 0;
};

#endif
