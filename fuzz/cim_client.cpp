// SPDX-License-Identifier: Apache-2.0
//
// What a CIM server sends to the client, of any bytes: HTTP, headers, trailers and documents. Lines
// of "=====" stand between the answers to one request and the next; "@ID@" is the request's number.
#include <Pegasus/Client/CIMClient.h>

#include <algorithm>
#include <boost/asio/error.hpp>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "Transport.h"

namespace {

using namespace Pegasus;

constexpr std::string_view kBetween = "\n=====\n";
constexpr int kMostConnections = 50;

std::string g_left;  // what the server has not sent yet
int g_connections = 0;
bool g_challenged = false;  // it sent a 401

// The server's side of a connection, in memory: it answers when a request has come in.
class Script final : public Internal::Transport {
public:
    void SetDeadline(Clock::time_point) override {}

    std::size_t Read(void* data, std::size_t size, boost::system::error_code& error) override {
        if (m_answer.empty()) {
            error = boost::asio::error::eof;
            return 0;
        }
        const std::size_t n = std::min(size, m_answer.size());
        std::memcpy(data, m_answer.data(), n);
        m_answer.erase(0, n);
        return n;
    }

    void Write(std::string_view head, std::string_view body, boost::system::error_code&) override {
        if (head.find("Authorization:") != std::string_view::npos && !g_challenged) std::abort();
        const std::size_t end = std::min(g_left.find(kBetween), g_left.size());
        m_answer = g_left.substr(0, end);
        g_left.erase(0, end + kBetween.size());
        PutNumber(body);
        if (m_answer.find("401") != std::string::npos) g_challenged = true;
    }

    bool Readable() override { return false; }

private:
    void PutNumber(std::string_view body) {
        const std::size_t first = body.find("<MESSAGE ID=\"") + 13;
        const std::string number(body.substr(first, body.find('"', first) - first));
        const std::size_t at = m_answer.find("@ID@");
        if (at != std::string::npos) m_answer.replace(at, 4, number);
    }

    std::string m_answer;
};

template <class Action>
void Try(Action action) {
    try {
        action();
    } catch (const Exception& refused) {
        (void)refused.getMessage().getCString();
    }
}

}  // namespace

// In place of the client's own.
std::unique_ptr<Internal::Transport> Internal::Transport::Open(const std::string&, Uint32, bool,
                                                               std::chrono::milliseconds) {
    if (++g_connections > kMostConnections) throw CannotConnectException("enough");
    return std::make_unique<Script>();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    g_left.assign(reinterpret_cast<const char*>(data), size);
    g_connections = 0;
    g_challenged = false;
    CIMClient client;
    Array<CIMKeyBinding> keys;
    keys.append(CIMKeyBinding("A", "1", CIMKeyBinding::NUMERIC));
    const CIMObjectPath service(String(), CIMNamespaceName(), "ZOR_FFDCService", keys);
    client.connect("host", 5988, "user", "password");
    for (int i = 0; i < 3; ++i) {
        Try([&] { client.enumerateInstances("root/cimv2", "ZOR_FFDCData"); });
        Array<CIMParamValue> out;
        Try([&] {
            client.invokeMethod("root/cimv2", service, "ExportData", Array<CIMParamValue>(), out);
        });
    }
    return 0;
}
