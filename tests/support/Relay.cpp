// SPDX-License-Identifier: Apache-2.0
#include "support/Relay.h"

#include <boost/json/parse.hpp>

namespace {

std::vector<std::string> Command(const std::string& protocol, int port,
                                 const std::vector<std::string>& weather) {
    std::vector<std::string> command = {VARNEX_RELAY, protocol, "--to",
                                        "127.0.0.1:" + std::to_string(port)};
    command.insert(command.end(), weather.begin(), weather.end());
    return command;
}

}  // namespace

Relay::Relay(const std::string& protocol, int serverPort, const std::vector<std::string>& weather)
    : m_peer(Command(protocol, serverPort, weather)),
      m_port(boost::json::parse(m_peer.Line()).at("port").to_number<int>()) {}
