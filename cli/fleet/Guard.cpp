// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Guard.h"

#include <algorithm>

namespace Kemffdc::Fleet {

Guard::Guard(const std::vector<std::string>& credentials) {
    m_hosts.reserve(credentials.size());
    for (const std::string& name : credentials) m_hosts.push_back({&m_credentials[name]});
}

bool Guard::MayStart(std::size_t host, Time now) const {
    const Credential& credential = *m_hosts[host].credential;
    if (IsClosedFor(host)) return false;
    if (m_hosts[host].answer == Answer::kAccepted) return true;
    if (credential.accepted >= kTrialHosts) return true;
    const auto asked = static_cast<std::size_t>(
        std::count_if(credential.awaited.begin(), credential.awaited.end(),
                      [now](const auto& waiting) { return !IsLate(waiting.second, now); }));
    // After a refusal nobody follows before the others have answered: it may be the first of many.
    const std::size_t refused = asked > 0 ? credential.refused : 0;
    return credential.accepted + asked + refused < kTrialHosts;
}

std::optional<Guard::Time> Guard::NextChange(Time now) const {
    std::optional<Time> next;
    for (const auto& [name, credential] : m_credentials) {
        for (const auto& [host, since] : credential.awaited) {
            if (IsLate(since, now)) continue;
            next = next ? std::min(*next, since + kAnswerTime) : since + kAnswerTime;
        }
    }
    return next;
}

void Guard::Started(std::size_t host, Time now) {
    if (m_hosts[host].answer == Answer::kAccepted) return;
    m_hosts[host].answer = Answer::kAwaited;
    m_hosts[host].credential->awaited[host] = now;
}

void Guard::Accepted(std::size_t host) {
    if (m_hosts[host].answer != Answer::kAwaited) return;
    m_hosts[host].answer = Answer::kAccepted;
    m_hosts[host].credential->awaited.erase(host);
    ++m_hosts[host].credential->accepted;
}

void Guard::Refused(std::size_t host) {
    Credential& credential = *m_hosts[host].credential;
    if (m_hosts[host].answer == Answer::kRefused) return;
    // One that was taken before and is refused now is no longer a host that has proved it.
    if (m_hosts[host].answer == Answer::kAccepted) --credential.accepted;
    m_hosts[host].answer = Answer::kRefused;
    credential.awaited.erase(host);
    ++credential.refused;
}

void Guard::Ended(std::size_t host) {
    if (m_hosts[host].answer != Answer::kAwaited) return;
    m_hosts[host].answer = Answer::kNone;
    m_hosts[host].credential->awaited.erase(host);
}

bool Guard::IsClosedFor(std::size_t host) const {
    const Host& asked = m_hosts[host];
    return asked.answer == Answer::kRefused ||
           (asked.credential->refused >= kRefusals && asked.answer != Answer::kAccepted);
}

}  // namespace Kemffdc::Fleet
