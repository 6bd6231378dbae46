// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_GUARD_H
#define KEMFFDC_FLEET_GUARD_H

#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Kemffdc::Fleet {

// Keeps a wrong password from being sent to a whole fleet: accounts lock after a few failures.
//
// A credential is tried on three hosts first. The others follow as its logins are taken, or as a
// host ends without having said anything about it. The second refusal closes the credential for
// all hosts but those where it has been taken. Knows no clock: each time is given.
class Guard {
public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr std::size_t kTrialHosts = 3;
    static constexpr std::size_t kRefusals = 2;
    // A host that is silent for so long no longer holds up the others.
    static constexpr std::chrono::seconds kAnswerTime{15};

    // `credentials`: the name of each host's, in the order of the plan.
    explicit Guard(const std::vector<std::string>& credentials);

    bool MayStart(std::size_t host, Time now) const;
    // The next moment when MayStart() may change by itself; none: it does not.
    std::optional<Time> NextChange(Time now) const;

    // A worker is about to use the credential on the host. Not before MayStart().
    void Started(std::size_t host, Time now);
    void Accepted(std::size_t host);  // its BMC has taken the login
    void Refused(std::size_t host);   // it has not
    void Ended(std::size_t host);     // nothing more comes from this worker

    // Whether the credential must not be used on the host any more.
    bool IsClosedFor(std::size_t host) const;

private:
    enum class Answer { kNone, kAwaited, kAccepted, kRefused };

    struct Credential {
        std::size_t accepted = 0;  // by so many hosts, as the next
        std::size_t refused = 0;
        std::map<std::size_t, Time> awaited;  // hosts that have not answered, and since when
    };
    struct Host {
        Credential* credential = nullptr;
        Answer answer = Answer::kNone;
    };

    static bool IsLate(Time since, Time now) { return now - since >= kAnswerTime; }

    std::map<std::string, Credential> m_credentials;
    std::vector<Host> m_hosts;
};

}  // namespace Kemffdc::Fleet

#endif
