// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_IPMI_EVENTS_H
#define KEMFFDC_IPMI_EVENTS_H

#include <cstdint>
#include <initializer_list>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "IpmiEvents.h"
#include "LogSink.h"
#include "Transfer.h"
#include "cli/ipmi/Files.h"

namespace Kemffdc {
struct Context;
}

namespace Kemffdc::Ipmi {

// What happens in a run of the library's IPMI channel beyond the codes of its operations.
enum class EventKind {
    // Told by its records.
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
    kNoAccount,       // ends the run
    kNotReconnected,  // ends the run
    kNotListed,       // text: why; ends the run
    kGetting,         // text: name of the file that is next
    kNoRunFolder,     // ends the run
    // Found out when the run has ended.
    kNoHost,        // nowhere to fetch the files from
    kCutOff,        // the run failed before the BMC's files were asked for
    kLocalTrouble,  // a file could not be stored on this machine
    kFailed,        // the library says so
};

struct Event {
    EventKind kind;
    std::string text;  // as the BMC sent it, cut to 64 KiB
};

// Nothing for records that tell nothing new.
std::optional<Event> ReadEvent(const Varnex::LogRecord& record);

// Which events there were.
class EventSet {
public:
    constexpr EventSet() = default;
    constexpr EventSet(std::initializer_list<EventKind> kinds) {
        for (const EventKind kind : kinds) m_bits |= Bit(kind);
    }

    void Add(EventKind kind) { m_bits |= Bit(kind); }
    bool Has(EventKind kind) const { return (m_bits & Bit(kind)) != 0; }
    bool Holds(EventSet others) const { return (m_bits & others.m_bits) == others.m_bits; }

private:
    static constexpr std::uint64_t Bit(EventKind kind) {
        return std::uint64_t{1} << static_cast<unsigned>(kind);
    }

    std::uint64_t m_bits = 0;
};

// Why the IPMI client failed.
struct Trouble {
    std::error_code error;  // none: nothing failed
    std::string reason;     // the platform's words, to be shown
};

// The last listing of the BMC's folder.
struct Listing {
    std::size_t names = 0;
    std::error_code error;
    std::string words;  // of the error
};

// What has happened in a run.
struct RunEvents {
    EventSet seen;
    Trouble session;                // what broke it, and not that it is broken
    std::string inBand;             // why this machine's own BMC gave no account or no address
    std::vector<Refusal> refusals;  // in order, each request once
    std::optional<Listing> listing;
    std::string notListed;              // the library's words of kNotListed
    std::vector<RemoteFile> files;      // those that the library came to, in order
    std::string address;                // of the BMC, numeric; over the LAN
    std::string hostKey;                // fingerprint of the one that was accepted last
    std::vector<std::string> hostKeys;  // what was decided about unknown ones; fit for display
};

// The BMC's completion code where it refused that request; 0: it did not.
std::uint8_t CodeOf(const RunEvents& events, Refusal::Request request);

// How many files the library did not come to.
std::size_t NotTried(const RunEvents& events);

// Puts together what the library's records and the platform's values tell.
class RunTracker {
public:
    // `inBand`: the session itself goes through a device of this machine.
    RunTracker(int mode, bool inBand) : m_mode(mode), m_inBand(inBand) {}

    void Take(const Event& event);
    void Take(const Varnex::IpmiConnection& connection);
    void Take(const Varnex::IpmiExchange& exchange);
    void Take(const Varnex::AccountLookupResult& account);
    void Take(const Varnex::UsbLanLookupResult& usbLan);
    void Take(const Varnex::PassedOverName& name);
    void Take(const Varnex::ListingResult& listing);
    bool Take(const Varnex::HostKeyResult& key);  // whether that is worth a sentence
    void TransferStarted();
    void TransferEnded(const std::error_code& error);

    const RunEvents& Events() const { return m_events; }

private:
    void TakeTrouble(bool inBand, const Trouble& trouble);
    void TakeRefusal(Refusal::Request request);

    int m_mode;
    bool m_inBand;
    std::uint8_t m_lastCode = 0;
    RunEvents m_events;
};

// Whether a mode asks for a file of that name.
bool IsAskedFor(const std::string& name, int mode);

// "file 2 of 5"
std::string FileProgress(const RunEvents& events);

// Listens to library and platform while they work: keeps the tracker, shows where the run is, and
// stops transfers when the run is interrupted.
class Listener : public Varnex::LogSink,
                 public Varnex::TransferWatcher,
                 public Varnex::IpmiWatcher {
public:
    explicit Listener(Context& run);
    ~Listener() override;
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    void Receive(const Varnex::LogRecord& record) override;

    void Connected(const Varnex::IpmiConnection& connection) override { Track(connection); }
    void Exchanged(const Varnex::IpmiExchange& exchange) override { Track(exchange); }
    void AccountLookedUp(const Varnex::AccountLookupResult& account) override { Track(account); }
    void UsbLanLookedUp(const Varnex::UsbLanLookupResult& usbLan) override { Track(usbLan); }

    void NamePassedOver(const Varnex::PassedOverName& name) override { Track(name); }
    void ListingEnded(const Varnex::ListingResult& listing) override { Track(listing); }
    void HostKeyJudged(const Varnex::HostKeyResult& key) override;
    void Started(const std::string& localPath) override;
    bool Progress(const Varnex::TransferProgress& progress) override;
    void Ended(const std::string& localPath, const std::error_code& error) override;

    RunEvents Events();

private:
    template <class Told>
    void Track(const Told& told) {
        try {
            const std::lock_guard<std::mutex> hold(m_lock);
            m_tracker.Take(told);
        } catch (...) {
            // Out of memory: that is lost, the run goes on.
        }
    }
    void Show(const Event& event);

    Context& m_run;
    std::mutex m_lock;
    RunTracker m_tracker;
};

}  // namespace Kemffdc::Ipmi

#endif
