// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakeUri.h"

#include <utility>

#include "Uri.h"

namespace {

std::exception_ptr g_next;

void ThrowIfAsked() {
    if (g_next) std::rethrow_exception(std::exchange(g_next, nullptr));
}

}  // namespace

struct Uri::Impl {
    std::string scheme;
    std::string host;
    std::uint16_t port;
    std::string user;
    std::string password;
    std::string path;
};

Uri::Uri(const std::string& scheme, const std::string& host, std::uint16_t port,
         const std::string& user, const std::string& password, const std::string& path) {
    ThrowIfAsked();
    m_impl.reset(new Impl{scheme, host, port, user, password, path});
}

Uri::Uri(const Uri& other) : m_impl(std::make_unique<Impl>(*other.m_impl)) {}
Uri::Uri(Uri&& other) noexcept = default;
Uri& Uri::operator=(const Uri& other) {
    *m_impl = *other.m_impl;
    return *this;
}
Uri& Uri::operator=(Uri&& other) noexcept = default;
Uri::~Uri() = default;

void Uri::set_auth(const std::string& user, const std::string& password) {
    m_impl->user = user;
    m_impl->password = password;
}

void Uri::set_path(const std::string& path) { m_impl->path = path; }

const std::string& Uri::scheme() const { return m_impl->scheme; }
const std::string& Uri::host() const { return m_impl->host; }
std::uint16_t Uri::port() const { return m_impl->port; }
const std::string& Uri::user() const { return m_impl->user; }
const std::string& Uri::password() const { return m_impl->password; }
const std::string& Uri::path() const { return m_impl->path; }

std::string Uri::str() const {
    return m_impl->scheme + "://" + m_impl->host + ":" + std::to_string(m_impl->port) +
           m_impl->path;
}

std::string Uri::join_path(const std::string& folder, const std::string& name) {
    return folder + name;
}

std::string Uri::encodeURI(const std::string& text) { return "encodeURI(" + text + ")"; }

namespace fakes {

void FakeUri::NextThrows(std::exception_ptr exception) { g_next = std::move(exception); }

}  // namespace fakes
