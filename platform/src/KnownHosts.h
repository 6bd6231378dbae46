// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_KNOWNHOSTS_H
#define VARNEX_PLATFORM_SRC_KNOWNHOSTS_H

#include <cstddef>
#include <set>
#include <string>
#include <system_error>

// The public key of an SSH server, as it came (RFC 4253, section 6.6).
class HostKey {
public:
    explicit HostKey(const std::string& blob);

    const std::string& Type() const { return m_type; }      // "ssh-ed25519", for instance
    const std::string& Base64() const { return m_base64; }  // as files write it
    std::string Fingerprint() const;                        // "SHA256:...", as ssh-keygen -l does

private:
    std::string m_blob;
    std::string m_type;
    std::string m_base64;
};

// A file of host keys in OpenSSH's format: host names, key type, key. Names are taken as they
// stand, hashed ones too, patterns are not; "@revoked" counts, "@cert-authority" does not. Any
// number of threads and processes may use one file: a lock (flock) keeps them apart.
class KnownHosts {
public:
    enum class Answer {
        kKnown,
        kUnknown,  // no key of that host, or no such file
        kOther,    // other keys of that host, and not this one
        kRevoked
    };

    struct Result {
        Answer answer = Answer::kUnknown;
        std::size_t line = 0;   // that decided; of kUnknown: that was added
        std::error_code error;  // of the system, when the file could not be read or written
    };

    explicit KnownHosts(std::string path) : m_path(std::move(path)) {}

    // The file that VARNEX_KNOWN_HOSTS names, else varnex/known_hosts below XDG_STATE_HOME, else
    // below ~/.local/state. Empty where there is no home.
    static std::string DefaultPath();

    // How the file names a host: "host", and "[host]:port" for ports other than 22.
    static std::string Name(const std::string& host, unsigned port);

    Result Find(const std::string& name, const HostKey& key) const;

    // Types of the keys that are known of a host, revoked ones not. Empty where that cannot be
    // read.
    std::set<std::string> Types(const std::string& name) const;

    // Adds the key to the end, unless somebody else has added one of that host meanwhile: then that
    // is the answer. kUnknown means added. The file is made with mode 0600, its folders with 0700.
    Result Remember(const std::string& name, const HostKey& key) const;

private:
    std::error_code Read(std::string& text) const;

    std::string m_path;
};

#endif
