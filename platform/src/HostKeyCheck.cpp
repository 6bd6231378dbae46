// SPDX-License-Identifier: Apache-2.0
#include "HostKeyCheck.h"

#include <ostream>

#include "Log.h"
#include "environment.h"

namespace {

constexpr char kLogSource[] = "platform/src/HostKeyCheck";

void Say(int level, int line, const std::string& text) {
    Log(level, kLogSource, line).Stream() << text;
}

enum class Policy { kAcceptNew, kStrict, kInsecure };

Policy PolicyFromEnvironment() {
    const std::string policy = EnvironmentText("VARNEX_SFTP_HOST_KEYS");
    if (policy.empty() || policy == "accept-new") return Policy::kAcceptNew;
    if (policy == "insecure") return Policy::kInsecure;
    if (policy != "strict") {
        Say(2, __LINE__,
            "VARNEX_SFTP_HOST_KEYS: \"" + policy +
                "\" is none of accept-new, strict and insecure; strict holds.");
    }
    return Policy::kStrict;
}

}  // namespace

HostKeyCheck::HostKeyCheck(const std::string& host, unsigned port)
    : m_path(KnownHosts::DefaultPath()), m_name(KnownHosts::Name(host, port)) {}

bool HostKeyCheck::Accepts(const HostKey& key) {
    const Policy policy = PolicyFromEnvironment();
    if (policy == Policy::kInsecure) {
        Say(4, __LINE__, Described(key) + " is not verified.");
        return true;
    }
    const KnownHosts::Result result = KnownHosts(m_path).Find(m_name, key);
    if (result.error || result.answer != KnownHosts::Answer::kUnknown) return Judge(result, key);
    if (policy == Policy::kAcceptNew) return AcceptsUnknown(key);
    return Refuse(Described(key) +
                  " is not known, and only known ones are accepted. If the fingerprint is the "
                  "BMC's, add this line to " +
                  m_path + ": " + m_name + " " + key.Type() + " " + key.Base64());
}

bool HostKeyCheck::AcceptsUnknown(const HostKey& key) {
    const KnownHosts::Result result = KnownHosts(m_path).Remember(m_name, key);
    if (result.error) {
        Say(2, __LINE__,
            Described(key) + " is new, is accepted, and cannot be remembered in \"" + m_path +
                "\": " + result.error.message());
        return true;
    }
    // Somebody was quicker: then it is theirs that counts.
    if (result.answer != KnownHosts::Answer::kUnknown) return Judge(result, key);
    Say(3, __LINE__, Described(key) + " is new, is accepted and remembered in " + m_path + ".");
    return true;
}

bool HostKeyCheck::Judge(const KnownHosts::Result& result, const HostKey& key) {
    const std::string place = m_path + ", line " + std::to_string(result.line);
    if (result.error) {
        return Refuse("The known host keys cannot be read: " + m_path + ": " +
                      result.error.message());
    }
    if (result.answer == KnownHosts::Answer::kRevoked) {
        return Refuse(Described(key) + " is revoked (" + place + ").");
    }
    if (result.answer == KnownHosts::Answer::kOther) {
        return Refuse(Described(key) + " is not the one that is known (" + place +
                      "). Somebody may be listening in. If the BMC was replaced or has made "
                      "new keys, remove its lines from the file and try again.");
    }
    Say(4, __LINE__, Described(key) + " is known.");
    return true;
}

bool HostKeyCheck::Refuse(const std::string& text) {
    m_refusal = text;
    return false;
}

std::string HostKeyCheck::Described(const HostKey& key) const {
    return "The host key of " + m_name + ", " + key.Type() + " " + key.Fingerprint() + ",";
}
