// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REPORT_EVENTLINES_H
#define KEMFFDC_REPORT_EVENTLINES_H

#include <boost/json/fwd.hpp>
#include <chrono>
#include <cstdint>
#include <mutex>

#include "cli/terminal/LineWriter.h"

namespace Kemffdc {

// The lines of --events (docs/json.md): JSON objects with a number, so that a reader that was too
// slow sees what it missed, and with a time. Any thread may call any operation.
class EventLines {
public:
    // Constraints of `descriptor` and of the moment: see LineWriter.
    explicit EventLines(int descriptor);

    // Does not block.
    void Tell(const char* event, const boost::json::object& members);

    // The last line, as it is. False: nobody has read it. Blocks for half a minute at most where
    // the reader takes nothing, and for as long as it reads.
    bool Finish(const boost::json::object& result);

private:
    const std::chrono::steady_clock::time_point m_start;
    std::mutex m_lock;
    std::uint64_t m_number = 0;
    LineWriter m_writer;
};

}  // namespace Kemffdc

#endif
