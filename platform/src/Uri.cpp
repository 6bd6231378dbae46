// SPDX-License-Identifier: Apache-2.0
#include "Uri.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "Ipmanip.h"
#include "shared/HostName.h"
#include "shared/Percent.h"

namespace {

// By hand and not by <cctype>: the host's locale must not change an address.
bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsOneOf(char c, const char* set) { return c != '\0' && std::strchr(set, c) != nullptr; }

// RFC 3986: unreserved, and what may stand in a path and in a query besides.
bool IsUnreserved(char c) { return IsLetter(c) || IsDigit(c) || IsOneOf(c, "-._~"); }
bool StaysInPath(char c) { return IsUnreserved(c) || IsOneOf(c, "!$&'()*+,;=:@/"); }
bool StaysInQuery(char c) { return StaysInPath(c) || c == '?'; }

// What is encoded already stays so.
std::string Encoded(const std::string& text, bool (&stays)(char)) {
    std::string out;
    out.reserve(text.size() + 1);
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (stays(text[i]) || shared::IsPercentEncoded(text, i)) {
            out += text[i];
        } else {
            shared::AppendPercentEncoded(out, text[i]);
        }
    }
    return out;
}

const std::string& CheckedScheme(const std::string& scheme) {
    const bool good = !scheme.empty() && IsLetter(scheme[0]) &&
                      std::all_of(scheme.begin(), scheme.end(), [](char c) {
                          return IsLetter(c) || IsDigit(c) || IsOneOf(c, "+-.");
                      });
    if (!good) throw std::invalid_argument("bad scheme \"" + scheme + "\"");
    return scheme;
}

const std::string& WithoutNul(const std::string& text, const char* part) {
    if (text.find('\0') == std::string::npos) return text;
    throw std::invalid_argument(std::string("NUL byte in the ") + part);
}

// Bytes from 0x80 on may belong to a name in its own script.
bool IsInHostNames(char c) {
    return IsUnreserved(c) || IsOneOf(c, "!$&'()*+,;=") || static_cast<unsigned char>(c) >= 0x80;
}

// "fe80::1%25eth0" is how a URL writes the scope of "fe80::1%eth0" (RFC 6874). A scope of digits
// is left as it is: "%251" may be the interface number 251.
std::string WithPlainScope(const std::string& address) {
    const std::size_t percent = address.find('%');
    const bool asInUrl = percent != std::string::npos && address.size() > percent + 3 &&
                         address.compare(percent, 3, "%25") == 0 && IsLetter(address[percent + 3]);
    if (!asInUrl) return address;
    return address.substr(0, percent + 1) + address.substr(percent + 3);
}

std::string CheckedHost(const std::string& host) {
    std::string plain = shared::WithoutBrackets(host);
    if (Ipmanip::is_ipv6(plain)) return WithPlainScope(plain);
    if (shared::IsInBrackets(host) || plain.empty() ||
        !std::all_of(plain.begin(), plain.end(), IsInHostNames)) {
        throw std::invalid_argument("bad host \"" + host + "\"");
    }
    return plain;
}

std::string HostInUrl(const std::string& host) {
    if (!Ipmanip::is_ipv6(host)) return host;
    const std::size_t percent = host.find('%');
    if (percent == std::string::npos) return "[" + host + "]";
    const std::string scope = shared::PercentEncoded(host.substr(percent + 1), IsUnreserved);
    return "[" + host.substr(0, percent) + "%25" + scope + "]";
}

}  // namespace

struct Uri::Impl {
    std::string scheme;
    std::string host;  // without brackets, scope after a plain "%"
    std::uint16_t port;
    std::string user;
    std::string password;
    std::string path;
    std::string query;
};

Uri::Uri(const std::string& scheme, const std::string& host, std::uint16_t port,
         const std::string& user, const std::string& password, const std::string& path)
    : m_impl(new Impl{CheckedScheme(scheme), CheckedHost(host), port, user, password,
                      WithoutNul(path, "path"), ""}) {}
Uri::Uri(const Uri& other) : m_impl(new Impl(*other.m_impl)) {}
Uri::Uri(Uri&& other) noexcept = default;
Uri& Uri::operator=(const Uri& other) {
    if (this != &other) m_impl = std::make_unique<Impl>(*other.m_impl);
    return *this;
}
Uri& Uri::operator=(Uri&& other) noexcept = default;
Uri::~Uri() = default;

void Uri::set_auth(const std::string& user, const std::string& password) {
    m_impl->user = user;
    m_impl->password = password;
}

void Uri::set_path(const std::string& path) { m_impl->path = WithoutNul(path, "path"); }
void Uri::set_query(const std::string& query) { m_impl->query = WithoutNul(query, "query"); }

const std::string& Uri::scheme() const { return m_impl->scheme; }
const std::string& Uri::host() const { return m_impl->host; }
std::uint16_t Uri::port() const { return m_impl->port; }
const std::string& Uri::user() const { return m_impl->user; }
const std::string& Uri::password() const { return m_impl->password; }
const std::string& Uri::path() const { return m_impl->path; }
const std::string& Uri::query() const { return m_impl->query; }

std::string Uri::str() const {
    const bool rooted = m_impl->path.rfind('/', 0) == 0;
    return m_impl->scheme + "://" + HostInUrl(m_impl->host) + ":" + std::to_string(m_impl->port) +
           (rooted ? "" : "/") + Encoded(m_impl->path, StaysInPath) +
           (m_impl->query.empty() ? "" : "?" + Encoded(m_impl->query, StaysInQuery));
}

std::string Uri::join_path(const std::string& folder, const std::string& name) {
    const std::size_t folderEnd = folder.find_last_not_of('/');
    const std::size_t nameStart = name.find_first_not_of('/');
    std::string joined =
        folderEnd == std::string::npos ? std::string() : folder.substr(0, folderEnd + 1);
    joined += '/';
    if (nameStart == std::string::npos) return joined;
    for (std::size_t i = nameStart; i < name.size(); ++i) {
        joined += shared::IsPercentEncoded(name, i) ? "%25" : std::string(1, name[i]);
    }
    return joined;
}

std::string Uri::encodeURI(const std::string& text) {
    return shared::PercentEncoded(text, IsUnreserved);
}
