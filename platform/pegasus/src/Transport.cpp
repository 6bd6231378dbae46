// SPDX-License-Identifier: Apache-2.0
#include "Transport.h"

#include <Pegasus/Common/Exception.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/write.hpp>
#include <cerrno>

#include "Text.h"

namespace Pegasus::Internal {

namespace {

namespace asio = boost::asio;
using boost::system::error_code;
using tcp = asio::ip::tcp;

// A non-blocking socket as asio's synchronous operations and its TLS want one, except that it waits
// no longer than the deadline.
class DeadlineSocket {
public:
    using lowest_layer_type = tcp::socket;
    using executor_type = tcp::socket::executor_type;

    explicit DeadlineSocket(asio::io_context& context) : m_socket(context) {}

    lowest_layer_type& lowest_layer() { return m_socket; }
    executor_type get_executor() { return m_socket.get_executor(); }

    void SetDeadline(Transport::Clock::time_point deadline) { m_deadline = deadline; }

    // asio's names
    template <class Buffers>
    std::size_t read_some(const Buffers& buffers, error_code& error) {
        error.clear();
        // A peer that never pauses must not push the deadline back.
        if (Transport::Clock::now() >= m_deadline) error = asio::error::timed_out;
        while (!error) {
            const std::size_t n = m_socket.read_some(buffers, error);
            if (error != asio::error::would_block) return n;
            Await(POLLIN, error);
        }
        return 0;
    }

    template <class Buffers>
    std::size_t write_some(const Buffers& buffers, error_code& error) {
        error.clear();
        while (!error) {
            const std::size_t n = m_socket.write_some(buffers, error);
            if (error != asio::error::would_block) return n;
            Await(POLLOUT, error);
        }
        return 0;
    }

    // asio's own connect would wait for ever, on a non-blocking socket too.
    void Connect(const tcp::endpoint& endpoint, error_code& error) {
        m_socket.close(error);
        Open(endpoint.protocol());
        const int result = ::connect(m_socket.native_handle(), endpoint.data(),
                                     static_cast<socklen_t>(endpoint.size()));
        if (result == 0) return;
        error.assign(errno, boost::system::system_category());
        if (error != asio::error::in_progress) return;
        Await(POLLOUT, error);
        if (!error) error = Outcome();
    }

    bool Readable() {
        pollfd wanted{m_socket.native_handle(), POLLIN, 0};
        return ::poll(&wanted, 1, 0) != 0;
    }

private:
    // asio's own open would leave the socket to the children of the process.
    void Open(const tcp& protocol) {
        const int type = SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK;
        const int descriptor = ::socket(protocol.family(), type, protocol.protocol());
        if (descriptor < 0) throw CannotCreateSocketException();
        error_code error;
        m_socket.assign(protocol, descriptor, error);
        if (!error) m_socket.non_blocking(true, error);
        if (!error) return;
        if (!m_socket.is_open()) ::close(descriptor);
        throw CannotCreateSocketException();
    }

    void Await(short event, error_code& error) {
        using std::chrono::milliseconds;
        pollfd wanted{m_socket.native_handle(), event, 0};
        int result = 0;
        do {
            // Rounded up, so that the last part of a millisecond is not spent spinning.
            const auto left = std::chrono::ceil<milliseconds>(m_deadline - Transport::Clock::now());
            const auto wait = std::clamp<milliseconds::rep>(left.count(), 0, 3600000);
            result = ::poll(&wanted, 1, static_cast<int>(wait));
        } while (result < 0 ? errno == EINTR : result == 0 && Transport::Clock::now() < m_deadline);
        error.clear();
        if (result < 0) error.assign(errno, boost::system::system_category());
        if (result == 0) error = asio::error::timed_out;
    }

    error_code Outcome() {
        int code = 0;
        socklen_t size = sizeof code;
        ::getsockopt(m_socket.native_handle(), SOL_SOCKET, SO_ERROR, &code, &size);
        return {code, boost::system::system_category()};
    }

    tcp::socket m_socket;
    Transport::Clock::time_point m_deadline;
};

template <class Stream>
void WriteBoth(Stream& stream, std::string_view head, std::string_view body, error_code& error) {
    const std::array<asio::const_buffer, 2> both = {asio::buffer(head), asio::buffer(body)};
    asio::write(stream, both, error);
}

class PlainTransport final : public Transport {
public:
    PlainTransport() : m_socket(m_context) {}

    DeadlineSocket& Socket() { return m_socket; }

    void SetDeadline(Clock::time_point deadline) override { m_socket.SetDeadline(deadline); }
    std::size_t Read(void* data, std::size_t size, error_code& error) override {
        return m_socket.read_some(asio::buffer(data, size), error);
    }
    void Write(std::string_view head, std::string_view body, error_code& error) override {
        WriteBoth(m_socket, head, body, error);
    }
    bool Readable() override { return m_socket.Readable(); }

private:
    asio::io_context m_context;
    DeadlineSocket m_socket;
};

class TlsTransport final : public Transport {
public:
    TlsTransport() : m_tls(Context()), m_stream(m_context, m_tls) {}
    TlsTransport(const TlsTransport&) = delete;
    TlsTransport& operator=(const TlsTransport&) = delete;

    ~TlsTransport() override {
        if (!m_established) return;
        SetDeadline(Clock::now());  // says goodbye, but does not wait for the peer's
        error_code ignored;
        m_stream.shutdown(ignored);
    }

    DeadlineSocket& Socket() { return m_stream.next_layer(); }

    void Handshake(error_code& error) {
        m_stream.handshake(asio::ssl::stream_base::client, error);
        m_established = !error;
    }

    void SetDeadline(Clock::time_point deadline) override { Socket().SetDeadline(deadline); }
    std::size_t Read(void* data, std::size_t size, error_code& error) override {
        const std::size_t n = m_stream.read_some(asio::buffer(data, size), error);
        // Many peers just close; HTTP's own framing shows whether something is missing.
        if (error == asio::ssl::error::stream_truncated) error = asio::error::eof;
        return n;
    }
    void Write(std::string_view head, std::string_view body, error_code& error) override {
        WriteBoth(m_stream, head, body, error);
    }
    bool Readable() override {
        return SSL_pending(m_stream.native_handle()) > 0 || Socket().Readable();
    }

private:
    static asio::ssl::context Context() {
        try {
            asio::ssl::context context(asio::ssl::context::tls_client);
            // As the peers of this interface expect it: they take 1.2 and know no later one.
            SSL_CTX_set_max_proto_version(context.native_handle(), TLS1_2_VERSION);
            return context;
        } catch (const boost::system::system_error& failure) {
            throw SSLException(FromPeer(failure.what()));
        }
    }

    asio::io_context m_context;
    asio::ssl::context m_tls;
    asio::ssl::stream<DeadlineSocket> m_stream;
    bool m_established = false;
};

String Locator(const std::string& host, Uint32 port) {
    return FromPeer(host + ":" + std::to_string(port));
}

[[noreturn]] void ThrowCannotConnect(const std::string& host, Uint32 port) {
    throw CannotConnectException("Cannot connect to " + Locator(host, port) +
                                 ". Connection failed.");
}

// Tries each of the host's addresses; one deadline for all.
void ConnectTcp(DeadlineSocket& socket, const std::string& host, Uint32 port) {
    error_code error;
    tcp::resolver resolver(socket.get_executor());
    // No flags: by default ::1 would not be found on a machine without another IPv6 address.
    const auto endpoints =
        resolver.resolve(host, std::to_string(port), tcp::resolver::flags(), error);
    if (error || port > 65535) throw InvalidLocatorException(Locator(host, port));
    error = asio::error::host_not_found;
    for (const auto& entry : endpoints) {
        socket.Connect(entry.endpoint(), error);
        if (!error) break;
    }
    if (error) ThrowCannotConnect(host, port);
    socket.lowest_layer().set_option(tcp::no_delay(true), error);
}

std::unique_ptr<Transport> OpenPlain(const std::string& host, Uint32 port,
                                     std::chrono::milliseconds timeout) {
    auto transport = std::make_unique<PlainTransport>();
    transport->SetDeadline(Transport::Clock::now() + timeout);
    ConnectTcp(transport->Socket(), host, port);
    return transport;
}

std::unique_ptr<Transport> OpenTls(const std::string& host, Uint32 port,
                                   std::chrono::milliseconds timeout) {
    auto transport = std::make_unique<TlsTransport>();
    transport->SetDeadline(Transport::Clock::now() + timeout);
    ConnectTcp(transport->Socket(), host, port);
    transport->SetDeadline(Transport::Clock::now() + timeout);
    error_code error;
    transport->Handshake(error);
    if (error) ThrowCannotConnect(host, port);
    return transport;
}

}  // namespace

std::unique_ptr<Transport> Transport::Open(const std::string& host, Uint32 port, bool tls,
                                           std::chrono::milliseconds timeout) {
    try {
        return tls ? OpenTls(host, port, timeout) : OpenPlain(host, port, timeout);
    } catch (const boost::system::system_error&) {  // no more file descriptors, for example
        throw CannotCreateSocketException();
    }
}

}  // namespace Pegasus::Internal
