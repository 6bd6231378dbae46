// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HISTORY_LIVEMARKS_H
#define KEMFFDC_HISTORY_LIVEMARKS_H

#include <cstdint>
#include <string>

#include "shared/FileDescriptor.h"

namespace Kemffdc::History {

// Which of many numbered things somebody works on right now: one byte of a file is locked for each
// (F_OFD_SETLK). The kernel takes a mark away when the process ends, however it ends.
class LiveMarks {
public:
    // The file is made, for this user alone, with the first mark.
    explicit LiveMarks(std::string path) : m_path(std::move(path)) {}

    // For as long as the object lives. False: another object or process has it. Where the file
    // system has no locks it is true, and nobody sees the mark.
    bool Set(std::int64_t number);

    // Whether anybody has set it.
    bool IsSet(std::int64_t number) const;

private:
    const std::string m_path;
    shared::FileDescriptor m_file;  // the marks of this object
};

}  // namespace Kemffdc::History

#endif
