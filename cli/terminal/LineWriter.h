// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_TERMINAL_LINEWRITER_H
#define KEMFFDC_TERMINAL_LINEWRITER_H

#include <chrono>
#include <memory>
#include <string>

namespace Kemffdc {

// Writes lines to a descriptor, each at once, on a thread of its own: a reader that is slow, stops
// reading or goes away holds up nobody. Of lines that nobody reads the newest 1 MiB is kept. Any
// thread may call any operation.
//
// To be made where SIGPIPE is ignored, and after the thread that takes the process's signals.
class LineWriter {
public:
    // The descriptor stays open for as long as the process lives.
    explicit LineWriter(int descriptor);
    ~LineWriter();  // does not wait for the reader

    LineWriter(const LineWriter&) = delete;
    LineWriter& operator=(const LineWriter&) = delete;

    // `line` is without its end. Does not block.
    void Write(const std::string& line);

    // Whether all lines have been taken: what would be out of date by the time it is written can
    // wait for that. False for good once nobody reads any more.
    bool HasCaughtUp() const;

    // Writes the last line; what comes later is not written. Waits for as long as the reader goes
    // on reading, at most `patience` from one piece (4 KiB) to the next. Returns whether this line
    // has been written.
    bool Finish(const std::string& line, std::chrono::milliseconds patience);

private:
    struct State;

    std::shared_ptr<State> m_state;  // the thread's too: it may be stuck in write(2) for good
};

}  // namespace Kemffdc

#endif
