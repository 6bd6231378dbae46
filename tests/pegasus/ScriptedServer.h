// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_PEGASUS_SCRIPTEDSERVER_H
#define VARNEX_TESTS_PEGASUS_SCRIPTEDSERVER_H

#include <openssl/ssl.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// A server on 127.0.0.1 (or ::1) whose every connection plays one scene, in the order in which the
// connections come. Nothing in it waits longer than ten seconds.

// The server's end of one connection.
class Peer {
public:
    explicit Peer(int socket) : m_socket(socket) {}
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    // False when the client's handshake fails.
    bool StartTls(SSL_CTX* context);
    std::string TlsVersion() const { return SSL_get_version(m_ssl); }
    // The server name that the client's hello asked for, or empty.
    std::string TlsServerName() const;

    // One whole request, by its content-length; what there is when the client closes first.
    std::string Request();
    void Send(const std::string& bytes);
    // Byte by byte, `pause` after each, until done or the client is gone.
    void Trickle(const std::string& bytes, std::chrono::milliseconds pause);
    // Until the client closes: true; after `limit`: false.
    bool ClientCloses(std::chrono::milliseconds limit = std::chrono::seconds(10));
    // The goodbye of TLS, while the connection stays open.
    void SayGoodbye() { SSL_shutdown(m_ssl); }
    // Closing will say no goodbye.
    void SkipGoodbye() { SSL_set_quiet_shutdown(m_ssl, 1); }
    // Asks the client for a new handshake, so many times.
    void Renegotiate(int times);
    // Bytes on the connection that TLS knows nothing of.
    void SendBelowTls(const std::string& bytes) {
        (void)!::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    // Closing sends a reset instead of an end.
    void ResetOnClose();

private:
    // 0 at the end or after ten seconds.
    std::size_t Read(char* data, std::size_t size);
    bool Write(const char* data, std::size_t size);

    int m_socket;
    SSL* m_ssl = nullptr;
};

class ScriptedServer {
public:
    using Scene = std::function<void(Peer&)>;

    explicit ScriptedServer(std::vector<Scene> scenes, const char* address = "127.0.0.1");
    // Ends when the scenes are over.
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    unsigned Port() const { return m_port; }
    // How many connections have come.
    unsigned Connections() const { return m_connections; }

private:
    void Run();

    std::vector<Scene> m_scenes;
    int m_listener;
    unsigned m_port;
    std::atomic<unsigned> m_connections{0};
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

// A key and a certificate signed with it, made on the spot.
std::shared_ptr<SSL_CTX> SelfSigned(const char* commonName, long validSeconds = 3600);

// A port of 127.0.0.1 where nobody listens.
unsigned ClosedPort();

#endif
