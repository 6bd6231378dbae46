// SPDX-License-Identifier: Apache-2.0
#include "support/Relay.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "gtest/gtest.h"

namespace {

sockaddr_in Loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// From C++ it is started and reached; what it does is test_relay.py's.
TEST(RelayTest, PassesADatagramOnTwice) {
    const int server = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = Loopback(0);
    socklen_t size = sizeof address;
    ASSERT_EQ(bind(server, reinterpret_cast<sockaddr*>(&address), size), 0);
    ASSERT_EQ(getsockname(server, reinterpret_cast<sockaddr*>(&address), &size), 0);
    const Relay relay("udp", ntohs(address.sin_port), {"--duplicate", "1"});

    const int client = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_in to = Loopback(relay.Port());
    ASSERT_EQ(sendto(client, "x", 1, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to), 1);

    const timeval patience{20, 0};
    setsockopt(server, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    char byte = 0;
    EXPECT_EQ(recv(server, &byte, 1, 0), 1);
    EXPECT_EQ(recv(server, &byte, 1, 0), 1);
    EXPECT_EQ(byte, 'x');
    close(client);
    close(server);
}

}  // namespace
