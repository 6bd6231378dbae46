// SPDX-License-Identifier: Apache-2.0
#include "SshAlgorithms.h"

#include <algorithm>
#include <vector>

namespace {

struct HostKeyAlgorithm {
    const char* name;
    const char* type;  // of the key
};

constexpr HostKeyAlgorithm kHostKeys[] = {
    {"ssh-ed25519", "ssh-ed25519"},
    {"ecdsa-sha2-nistp256", "ecdsa-sha2-nistp256"},
    {"ecdsa-sha2-nistp384", "ecdsa-sha2-nistp384"},
    {"ecdsa-sha2-nistp521", "ecdsa-sha2-nistp521"},
    {"rsa-sha2-512", "ssh-rsa"},
    {"rsa-sha2-256", "ssh-rsa"},
};

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

std::string ssh_algorithms::KeyExchanges() {
    return "curve25519-sha256,curve25519-sha256@libssh.org,ecdh-sha2-nistp256,ecdh-sha2-nistp384,"
           "ecdh-sha2-nistp521,diffie-hellman-group16-sha512,diffie-hellman-group18-sha512,"
           "diffie-hellman-group14-sha256,diffie-hellman-group-exchange-sha256,"
           "diffie-hellman-group14-sha1,diffie-hellman-group-exchange-sha1,"
           "diffie-hellman-group1-sha1";
}

// The quickest first: processors have instructions for AES.
std::string ssh_algorithms::Ciphers() {
    return "aes128-gcm@openssh.com,aes256-gcm@openssh.com,chacha20-poly1305@openssh.com,aes128-ctr,"
           "aes192-ctr,aes256-ctr,aes128-cbc,aes192-cbc,aes256-cbc,3des-cbc";
}

std::string ssh_algorithms::Macs() {
    return "hmac-sha2-256-etm@openssh.com,hmac-sha2-512-etm@openssh.com,hmac-sha2-256,"
           "hmac-sha2-512,hmac-sha1-etm@openssh.com,hmac-sha1";
}

std::string ssh_algorithms::HostKeys(const std::set<std::string>& known, bool withSha1) {
    std::vector<HostKeyAlgorithm> all(std::begin(kHostKeys), std::end(kHostKeys));
    if (withSha1) all.push_back({"ssh-rsa", "ssh-rsa"});
    std::stable_partition(all.begin(), all.end(), [&known](const HostKeyAlgorithm& algorithm) {
        return known.count(algorithm.type) > 0;
    });
    std::string names;
    for (const HostKeyAlgorithm& algorithm : all) {
        names += (names.empty() ? "" : ",") + std::string(algorithm.name);
    }
    return names;
}

bool ssh_algorithms::IsWeak(const std::string& algorithm) {
    return EndsWith(algorithm, "-sha1") || EndsWith(algorithm, "-cbc") ||
           algorithm.find("hmac-sha1") == 0 || algorithm == "ssh-rsa";
}
