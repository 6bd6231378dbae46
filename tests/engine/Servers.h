// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_ENGINE_SERVERS_H
#define VARNEX_TESTS_ENGINE_SERVERS_H

#include <boost/crc.hpp>
#include <boost/json.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "common/rest/RestClient.h"
#include "support/Peer.h"

// One of this folder's scripts, running.
class Server {
public:
    explicit Server(const std::string& script, std::vector<std::string> arguments = {})
        : m_peer(Command(script, std::move(arguments))),
          m_ports(boost::json::parse(m_peer.Line())) {}

    int Port(const std::string& name = "port") const { return m_ports.at(name).to_number<int>(); }

    // `path` begins with "/".
    std::string Url(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(Port()) + path;
    }

private:
    static std::vector<std::string> Command(const std::string& script,
                                            std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"/usr/bin/python3", VARNEX_ENGINE_TESTS "/" + script});
        return arguments;
    }

    Peer m_peer;
    boost::json::value m_ports;
};

// Settings that this library offers to derived clients only.
class FullClient : public Rest::RestClient {
public:
    using Rest::RestClient::SetBodySink;
    using Rest::RestClient::SetClientCertificate;
    using Rest::RestClient::SetClientKey;
    using Rest::RestClient::SetCookieList;
};

// `size` bytes 0, 1, ..., 250, 0, ...
inline std::string Pattern(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i % 251);
    return bytes;
}

inline std::uint32_t Crc32(const std::string& bytes) {
    boost::crc_32_type crc;
    crc.process_bytes(bytes.data(), bytes.size());
    return crc.checksum();
}

#endif
