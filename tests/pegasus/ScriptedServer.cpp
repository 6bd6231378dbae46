// SPDX-License-Identifier: Apache-2.0
#include "ScriptedServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace {

using namespace std::chrono_literals;

void Limit(int socket) {
    const timeval tenSeconds{10, 0};
    const int on = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &tenSeconds, sizeof tenSeconds);
    ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &tenSeconds, sizeof tenSeconds);
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

int Listen(const char* address, unsigned& port) {
    const bool v6 = std::strchr(address, ':') != nullptr;
    sockaddr_storage storage{};
    socklen_t size = v6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    auto* generic = reinterpret_cast<sockaddr*>(&storage);
    auto* v4Address = reinterpret_cast<sockaddr_in*>(&storage);
    auto* v6Address = reinterpret_cast<sockaddr_in6*>(&storage);
    generic->sa_family = v6 ? AF_INET6 : AF_INET;
    ::inet_pton(generic->sa_family, address,
                v6 ? static_cast<void*>(&v6Address->sin6_addr) : &v4Address->sin_addr);
    const int listener = ::socket(generic->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener < 0 || ::bind(listener, generic, size) != 0 || ::listen(listener, 16) != 0) {
        throw std::runtime_error(std::string("cannot listen on ") + address);
    }
    ::getsockname(listener, generic, &size);
    port = ntohs(v6 ? v6Address->sin6_port : v4Address->sin_port);
    return listener;
}

std::size_t BodySize(const std::string& head) {
    static constexpr char kName[] = "\r\ncontent-length: ";
    const std::size_t at = head.find(kName);
    return at == std::string::npos ? 0 : std::stoul(head.substr(at + sizeof kName - 1));
}

}  // namespace

Peer::~Peer() {
    if (m_ssl != nullptr) {
        SSL_shutdown(m_ssl);
        SSL_free(m_ssl);
    }
    ::close(m_socket);
}

bool Peer::StartTls(SSL_CTX* context) {
    m_ssl = SSL_new(context);
    SSL_set_fd(m_ssl, m_socket);
    return SSL_accept(m_ssl) == 1;
}

std::string Peer::TlsServerName() const {
    const char* name = SSL_get_servername(m_ssl, TLSEXT_NAMETYPE_host_name);
    return name == nullptr ? "" : name;
}

// The end of a child process interrupts a read that has a limit.
std::size_t Peer::Read(char* data, std::size_t size) {
    for (;;) {
        errno = 0;
        const auto n = m_ssl != nullptr ? SSL_read(m_ssl, data, static_cast<int>(size))
                                        : ::recv(m_socket, data, size, 0);
        if (n > 0) return static_cast<std::size_t>(n);
        if (errno != EINTR) return 0;
    }
}

bool Peer::Write(const char* data, std::size_t size) {
    while (size > 0) {
        const auto n = m_ssl != nullptr ? SSL_write(m_ssl, data, static_cast<int>(size))
                                        : ::send(m_socket, data, size, MSG_NOSIGNAL);
        if (n <= 0) return false;
        data += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

std::string Peer::Request() {
    std::string request;
    for (;;) {
        const std::size_t end = request.find("\r\n\r\n");
        if (end != std::string::npos && request.size() >= end + 4 + BodySize(request)) {
            return request;
        }
        char data[4096];
        const std::size_t n = Read(data, sizeof data);
        if (n == 0) return request;
        request.append(data, n);
    }
}

void Peer::Send(const std::string& bytes) { Write(bytes.data(), bytes.size()); }

void Peer::Trickle(const std::string& bytes, std::chrono::milliseconds pause) {
    for (const char c : bytes) {
        if (!Write(&c, 1)) return;
        std::this_thread::sleep_for(pause);
    }
}

bool Peer::ClientCloses(std::chrono::milliseconds limit) {
    pollfd wanted{m_socket, POLLIN, 0};
    if (::poll(&wanted, 1, static_cast<int>(limit.count())) <= 0) return false;
    char data[4096];
    return Read(data, sizeof data) == 0;
}

void Peer::Renegotiate(int times) {
    for (int i = 0; i < times; ++i) {
        SSL_renegotiate(m_ssl);
        SSL_do_handshake(m_ssl);
    }
}

void Peer::ResetOnClose() {
    const linger now{1, 0};
    ::setsockopt(m_socket, SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

ScriptedServer::ScriptedServer(std::vector<Scene> scenes, const char* address)
    : m_scenes(std::move(scenes)),
      m_listener(Listen(address, m_port)),
      m_thread([this] { Run(); }) {}

ScriptedServer::~ScriptedServer() {
    m_stop = true;
    m_thread.join();
    ::close(m_listener);
}

void ScriptedServer::Run() {
    // OpenSSL's writes to a client that has gone; the client's own thread keeps the signal.
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    std::size_t next = 0;
    while (!m_stop) {
        pollfd wanted{m_listener, POLLIN, 0};
        if (::poll(&wanted, 1, 10) <= 0) continue;
        const int socket = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0) continue;
        ++m_connections;
        Limit(socket);
        Peer peer(socket);
        if (next < m_scenes.size()) m_scenes[next++](peer);
    }
}

std::shared_ptr<SSL_CTX> SelfSigned(const char* commonName, long validSeconds) {
    const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
        EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"), &EVP_PKEY_free);
    const std::unique_ptr<X509, decltype(&X509_free)> certificate(X509_new(), &X509_free);
    X509_set_version(certificate.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -7200);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), validSeconds);
    X509_set_pubkey(certificate.get(), key.get());
    X509_NAME* name = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(commonName), -1, -1, 0);
    X509_set_issuer_name(certificate.get(), name);
    X509_sign(certificate.get(), key.get(), EVP_sha256());
    std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free);
    SSL_CTX_use_certificate(context.get(), certificate.get());
    SSL_CTX_use_PrivateKey(context.get(), key.get());
    return context;
}

unsigned ClosedPort() {
    unsigned port = 0;
    ::close(Listen("127.0.0.1", port));
    return port;
}
