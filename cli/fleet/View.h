// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_VIEW_H
#define KEMFFDC_FLEET_VIEW_H

#include <cstddef>
#include <deque>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "cli/fleet/Estimate.h"
#include "cli/fleet/Scene.h"
#include "cli/terminal/LineWriter.h"
#include "cli/terminal/LiveBlock.h"
#include "cli/terminal/OwnTerminal.h"

namespace Kemffdc::Fleet {

// Where a view is written to: standard error, or a test. No operation but Finish() blocks.
class Console {
public:
    virtual ~Console() = default;

    virtual void Write(const std::string& text) = 0;  // with a line end behind it
    virtual bool IsReady() const = 0;  // what was written is out, and more would be seen
    virtual TerminalSize Size() const = 0;
    // Waits until all is out, but not for a reader that has stopped reading.
    virtual void Finish(const std::string& text) = 0;
};

// Who looks on learns of each failure of a host once.
class FailureTeller {
public:
    void Begun(const Scene& scene);
    // The line that is to be said now; empty: none.
    std::string LineFor(const Scene& scene, std::size_t host);

private:
    std::vector<bool> m_told;
};

// On a terminal that understands cursor control: the table, and failures and notes above it.
class TerminalView : public Audience {
public:
    explicit TerminalView(std::unique_ptr<Console> console) : m_console(std::move(console)) {}

    void Begun(const Scene& scene) override;
    void Changed(const Scene& scene, std::size_t host) override;
    void Tick(const Scene& scene) override;
    void Noted(const std::string& sentence) override;
    void Ended(const Scene& scene, int exitCode) override;

private:
    void Say(const std::string& line);
    void Draw(const Scene& scene);
    bool IsSettled();

    const std::unique_ptr<Console> m_console;
    LiveBlock m_block;
    FailureTeller m_failures;
    Throughput m_throughput;
    TerminalSize m_size;
    WallTime m_seen;                // the time of the last tick
    std::deque<std::string> m_say;  // not written yet
};

// Elsewhere: a line for each failure and note, and the state of the run every so often; their
// number is bounded, however long the run and however large the fleet.
class PlainView : public Audience {
public:
    explicit PlainView(std::unique_ptr<Console> console) : m_console(std::move(console)) {}

    void Begun(const Scene& scene) override;
    void Changed(const Scene& scene, std::size_t host) override;
    void Tick(const Scene& scene) override;
    void Noted(const std::string& sentence) override;
    void Ended(const Scene& scene, int exitCode) override;

private:
    const std::unique_ptr<Console> m_console;
    FailureTeller m_failures;
    Throughput m_throughput;
    int m_said = 0;   // failures
    WallTime m_next;  // line about the state
};

struct ViewSettings {
    bool live = false;    // standard error is a terminal that understands cursor control
    bool json = false;    // at the end, instead of words
    bool events = false;  // all the time, instead of words at the end
};

// What one sees of a run that works: the state on standard error, what it has come to on standard
// output, which is `out`; that is bad once nobody has taken it. To be made where SIGPIPE is
// ignored. Ended() blocks for as long as the result is read.
std::unique_ptr<Audience> MakeAudience(const ViewSettings& settings, std::ostream& out);

}  // namespace Kemffdc::Fleet

#endif
