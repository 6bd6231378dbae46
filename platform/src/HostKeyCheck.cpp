// SPDX-License-Identifier: Apache-2.0
#include "HostKeyCheck.h"

#include <optional>
#include <ostream>

#include "Log.h"
#include "environment.h"
#include "transfer_watchers.h"

namespace {

constexpr char kLogSource[] = "platform/src/HostKeyCheck";

enum class Policy { kAcceptNew, kStrict, kInsecure };

Policy PolicyFromEnvironment() {
    const std::string policy = EnvironmentText("VARNEX_SFTP_HOST_KEYS");
    if (policy.empty() || policy == "accept-new") return Policy::kAcceptNew;
    if (policy == "insecure") return Policy::kInsecure;
    if (policy != "strict") {
        Log(2, kLogSource, __LINE__).Stream()
            << "VARNEX_SFTP_HOST_KEYS: \"" << policy
            << "\" is none of accept-new, strict and insecure; strict holds.";
    }
    return Policy::kStrict;
}

// Of the record about it. Nothing where the key is refused: then the transfer's error says it.
std::optional<int> LevelOf(Varnex::HostKeyDecision decision) {
    switch (decision) {
        case Varnex::HostKeyDecision::kKnown:
        case Varnex::HostKeyDecision::kNotVerified:
            return 4;
        case Varnex::HostKeyDecision::kFirstSeen:
            return 3;
        case Varnex::HostKeyDecision::kNotRemembered:
            return 2;
        default:
            return std::nullopt;
    }
}

}  // namespace

HostKeyCheck::HostKeyCheck(const std::string& host, unsigned port)
    : m_path(KnownHosts::DefaultPath()), m_name(KnownHosts::Name(host, port)) {}

bool HostKeyCheck::Accepts(const HostKey& key) {
    const Policy policy = PolicyFromEnvironment();
    if (policy == Policy::kInsecure) {
        return Decide(Decision::kNotVerified, key, {}, Described(key) + " is not verified.");
    }
    const KnownHosts::Result result = KnownHosts(m_path).Find(m_name, key);
    if (result.error || result.answer != KnownHosts::Answer::kUnknown) return Judge(result, key);
    if (policy == Policy::kAcceptNew) return AcceptsUnknown(key);
    return Decide(Decision::kUnknown, key, result,
                  Described(key) +
                      " is not known, and only known ones are accepted. If the fingerprint is the "
                      "BMC's, add this line to " +
                      m_path + ": " + m_name + " " + key.Type() + " " + key.Base64());
}

bool HostKeyCheck::AcceptsUnknown(const HostKey& key) {
    const KnownHosts::Result result = KnownHosts(m_path).Remember(m_name, key);
    if (result.error) {
        return Decide(Decision::kNotRemembered, key, result,
                      Described(key) + " is new, is accepted, and cannot be remembered in \"" +
                          m_path + "\": " + result.error.message());
    }
    // Somebody was quicker: then it is theirs that counts.
    if (result.answer != KnownHosts::Answer::kUnknown) return Judge(result, key);
    return Decide(Decision::kFirstSeen, key, result,
                  Described(key) + " is new, is accepted and remembered in " + m_path + ".");
}

bool HostKeyCheck::Judge(const KnownHosts::Result& result, const HostKey& key) {
    const std::string place = m_path + ", line " + std::to_string(result.line);
    if (result.error) {
        return Decide(
            Decision::kUnreadable, key, result,
            "The known host keys cannot be read: " + m_path + ": " + result.error.message());
    }
    if (result.answer == KnownHosts::Answer::kRevoked) {
        return Decide(Decision::kRevoked, key, result,
                      Described(key) + " is revoked (" + place + ").");
    }
    if (result.answer == KnownHosts::Answer::kOther) {
        return Decide(Decision::kChanged, key, result,
                      Described(key) + " is not the one that is known (" + place +
                          "). Somebody may be listening in. If the BMC was replaced or has made "
                          "new keys, remove its lines from the file and try again.");
    }
    return Decide(Decision::kKnown, key, result, Described(key) + " is known.");
}

bool HostKeyCheck::Decide(Decision decision, const HostKey& key, const KnownHosts::Result& found,
                          const std::string& text) {
    const std::optional<int> level = LevelOf(decision);
    if (level) {
        Log(*level, kLogSource, __LINE__).Stream() << text;
    } else {
        m_refusal = text;
    }
    transfer_watchers::HostKeyJudged({decision, level.has_value(), m_name, key.Type(),
                                      key.Fingerprint(), m_path, found.line, found.error, text});
    return level.has_value();
}

std::string HostKeyCheck::Described(const HostKey& key) const {
    return "The host key of " + m_name + ", " + key.Type() + " " + key.Fingerprint() + ",";
}
