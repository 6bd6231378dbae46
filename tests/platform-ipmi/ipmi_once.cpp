// SPDX-License-Identifier: Apache-2.0
//
// ipmi_once HOST PORT USER PASSWORD CIPHER-SUITE [FOLDER]: makes FOLDER the current one, connects,
// asks whether the collection is finished, and prints what came: "connect RESULT", then "send
// RESULT CODE DATA", all decimal, data in hexadecimal. The log goes to standard error.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "IpmiClient.h"

int main(int count, char** words) {
    if (count != 6 && count != 7) return 2;
    if (count == 7 && chdir(words[6]) != 0) return 2;
    IpmiClient client(words[1], words[3], words[4], words[2],
                      static_cast<std::uint16_t>(std::atoi(words[5])));
    const int connected = client.connect();
    std::printf("connect %d\n", connected);
    if (connected != 0) return 1;

    std::vector<std::uint8_t> response;
    std::uint8_t code = 0;
    const int sent = client.send({0x4D, {0x01}, 0x3A}, response, code);
    std::printf("send %d %d ", sent, code);
    for (const std::uint8_t byte : response) std::printf("%02x", byte);
    std::printf("\n");
    return sent == 0 ? 0 : 1;
}
