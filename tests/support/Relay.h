// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_SUPPORT_RELAY_H
#define VARNEX_TESTS_SUPPORT_RELAY_H

#include <string>
#include <vector>

#include "support/Peer.h"

// Bad weather between the code under test and a server on 127.0.0.1. What happens is the same for
// the same seed.
class Relay {
public:
    // `protocol`: "tcp" or "udp". `weather`: options of relay.py, which tells what there is, for
    // instance {"--seed", "7", "--loss", "0.1"} or {"--cut-after", "5000"}.
    Relay(const std::string& protocol, int serverPort, const std::vector<std::string>& weather);

    int Port() const { return m_port; }

private:
    Peer m_peer;
    int m_port;
};

#endif
