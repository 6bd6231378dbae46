// SPDX-License-Identifier: Apache-2.0
//
// The BMC's file service is on port 115, wherever it is: each of these tests runs in a network of
// its own, where that port is free whatever else runs on this machine.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

bool IsListing(int count, char** words) {
    for (int n = 1; n < count; ++n) {
        if (std::strncmp(words[n], "--gtest_list_tests", 18) == 0) return true;
    }
    return false;
}

// Ends with 77, which counts as skipped, where such a network is forbidden.
void MoveIntoPrivateNet(char** words) {
    std::vector<char*> command = {const_cast<char*>(VARNEX_PRIVATE_NET_TOOL)};
    for (; *words != nullptr; ++words) command.push_back(*words);
    command.push_back(nullptr);
    execv(command[0], command.data());
    std::perror(command[0]);
    std::exit(1);
}

}  // namespace

int main(int count, char** words) {
    if (!IsListing(count, words) && std::getenv("VARNEX_PRIVATE_NET") == nullptr) {
        MoveIntoPrivateNet(words);
    }
    testing::InitGoogleMock(&count, words);
    return RUN_ALL_TESTS();
}
