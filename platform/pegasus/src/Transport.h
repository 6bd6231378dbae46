// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PEGASUS_TRANSPORT_H
#define VARNEX_PEGASUS_TRANSPORT_H

#include <Pegasus/Common/Config.h>

#include <boost/system/error_code.hpp>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace Pegasus::Internal {

// A TCP connection, with TLS or without, whose every wait ends at one deadline.
class Transport {
public:
    using Clock = std::chrono::steady_clock;

    // Connects; up to `timeout` for TCP and again for the TLS handshake. Throws
    // InvalidLocatorException, CannotConnectException, CannotCreateSocketException, SSLException.
    static std::unique_ptr<Transport> Open(const std::string& host, Uint32 port, bool tls,
                                           std::chrono::milliseconds timeout);

    Transport() = default;
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;
    // Closes, with a goodbye in TLS.
    virtual ~Transport() = default;

    // For everything that follows. Steady data do not push it back.
    virtual void SetDeadline(Clock::time_point deadline) = 0;

    // At least one byte, or an error: asio's timed_out at the deadline, eof at the end.
    virtual std::size_t Read(void* data, std::size_t size, boost::system::error_code& error) = 0;
    // Both, as one stretch.
    virtual void Write(std::string_view head, std::string_view body,
                       boost::system::error_code& error) = 0;

    // Bytes or the end of the stream are there already.
    virtual bool Readable() = 0;
};

}  // namespace Pegasus::Internal

#endif
