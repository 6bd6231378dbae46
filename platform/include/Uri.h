// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_URI_H
#define VARNEX_PLATFORM_URI_H

#include <cstdint>
#include <memory>
#include <string>

#pragma GCC visibility push(default)

#ifndef VARNEX_PLATFORM_GLOBAL
inline namespace varnex_platform {
#endif

// Where a file lies: what RFC 3986 calls scheme, authority, path and query. A value, copyable.
//
// An implementer guarantees that user and password are kept apart from the text of the address, so
// that no log and no error text shows them by accident, and that each may hold any bytes but NUL.
class Uri {
public:
    // `host`: a name, an IPv4 address, or an IPv6 address, bare or in brackets, with or without a
    // scope. `path` as the server names it: "%" and two hexadecimal digits stay as they are, every
    // other byte that cannot stand in a path ("?" and "#" too) is percent-encoded when the address
    // is formed. "." and ".." components stay.
    //
    // Throws std::invalid_argument, with a text for the log, when `scheme` is no scheme, `host` is
    // empty or holds a byte that no host has, or `path` holds a NUL byte.
    Uri(const std::string& scheme, const std::string& host, std::uint16_t port,
        const std::string& user, const std::string& password, const std::string& path);
    Uri(const Uri& other);
    Uri(Uri&& other) noexcept;
    Uri& operator=(const Uri& other);
    Uri& operator=(Uri&& other) noexcept;
    ~Uri();

    void set_auth(const std::string& user, const std::string& password);

    // Throws like the constructor.
    void set_path(const std::string& path);

    // What follows the "?" of an address of HTTPS, as the server names it; encoded as a path is,
    // but that "?" stays. Empty, as at first: there is no "?". Throws for a NUL byte.
    void set_query(const std::string& query);

    const std::string& scheme() const;
    const std::string& host() const;  // without brackets
    std::uint16_t port() const;
    const std::string& user() const;
    const std::string& password() const;
    const std::string& path() const;   // as given
    const std::string& query() const;  // as given

    // The whole address, encoded, IPv6 in brackets, without user and password.
    std::string str() const;

    // `folder` and `name` with exactly one "/" between them. A "%" of `name` that two hexadecimal
    // digits follow is written as "%25": a file name means itself and is never taken as encoded.
    static std::string join_path(const std::string& folder, const std::string& name);

    // Percent-encodes every byte but the unreserved ones of RFC 3986, section 2.3.
    static std::string encodeURI(const std::string& text);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

#ifndef VARNEX_PLATFORM_GLOBAL
}  // namespace varnex_platform
#endif

#pragma GCC visibility pop

#endif
