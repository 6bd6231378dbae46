// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_IPMI_EVENTS_H
#define KEMFFDC_IPMI_EVENTS_H

#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "LogSink.h"
#include "Transfer.h"
#include "cli/ipmi/Files.h"

namespace Kemffdc {
struct Context;
}

namespace Kemffdc::Ipmi {

// What a record of the library's IPMI channel and its platform tells beyond the codes of its
// operations.
enum class EventKind {
    kSessionTrouble,  // text: why the IPMI client failed
    kInBandTrouble,   // text: why this machine's own BMC gave no account or no address
    kStarting,        // the BMC is told to gather
    kStartUnsent,     // it could not be told
    kStartRefused,    // it answered with a completion code
    kPollUnsent,      // it could not be asked whether it is done
    kPollRefused,     // it answered with a completion code
    kPollFailed,      // ends the wait, for one of these reasons or an empty answer
    kTimedOut,        // the wait has ended without an answer
    kAskingAccount,   // for an account of its file service
    kAccountUnsent,   // it could not be asked
    kAccountRefused,  // it answered with a completion code
    kAccountCut,      // its answer is too short
    kNoAccount,       // ends the run
    kConnected,       // a session is open
    kNotReconnected,  // ends the run
    kNotListed,       // text: "NUMBER words"; ends the run
    kListed,          // text: how many names
    kGetting,         // text: name of the file that is next
    kPassedOver,      // text: a name and why it is none, see SplitPassedOver
    kHostKey,         // text: what was decided about an SSH host key, a whole sentence
    kNoRunFolder,     // ends the run
};

struct Event {
    EventKind kind;
    std::string text;  // as the BMC sent it, cut to 64 KiB
};

// Nothing for records that tell nothing new.
std::optional<Event> ReadEvent(const Varnex::LogRecord& record);

// What the library's records and transfers say about a run.
struct RunEvents {
    std::string sessionTrouble;  // the last of each
    std::string inBandTrouble;
    bool startUnsent = false;
    bool startRefused = false;
    bool pollUnsent = false;
    bool pollRefused = false;
    bool pollFailed = false;
    bool timedOut = false;
    bool accountUnsent = false;
    bool accountRefused = false;
    bool noAccount = false;
    bool notReconnected = false;
    bool noRunFolder = false;
    std::optional<std::string> notListed;  // the library's reason
    std::optional<unsigned> listed;        // how many names the BMC's folder has
    std::vector<RemoteFile> files;         // those that the library came to, in order
    std::vector<std::string> hostKeys;     // whole sentences, fit for display
};

// How many files the library did not come to.
std::size_t NotTried(const RunEvents& events);

// Keeps that account.
class RunTracker {
public:
    explicit RunTracker(int mode) : m_mode(mode) {}

    void Take(const Event& event);
    void TransferStarted();
    void TransferEnded(const std::error_code& error);

    RunEvents& Events() { return m_events; }

private:
    void TakePassedOver(const std::string& text);

    int m_mode;
    RunEvents m_events;
};

// Whether a mode asks for a file of that name.
bool IsAskedFor(const std::string& name, int mode);

// "file 2 of 5"
std::string FileProgress(const RunEvents& events);

// Listens to the library while it works: keeps the tracker, shows where the run is, and stops
// transfers when the run is interrupted.
class Listener : public Varnex::LogSink, public Varnex::TransferWatcher {
public:
    explicit Listener(Context& run);
    ~Listener() override;
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    void Receive(const Varnex::LogRecord& record) override;

    void Started(const std::string& localPath) override;
    bool Progress(const Varnex::TransferProgress& progress) override;
    void Ended(const std::string& localPath, const std::error_code& error) override;

    RunEvents Events();

private:
    void Show(const Event& event);

    Context& m_run;
    std::mutex m_lock;
    RunTracker m_tracker;
};

}  // namespace Kemffdc::Ipmi

#endif
