// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_PEGASUS_WIREFILE_H
#define VARNEX_TESTS_PEGASUS_WIREFILE_H

#include <string>
#include <vector>

// A recording in wire/, as bytes.

struct WireExchange {
    std::string name;  // of recordings with cases, else empty
    std::string request;
    std::string response;
};

// The first connection's exchanges, or all cases, in order. Fails the test when there are none.
std::vector<WireExchange> ReadWire(const std::string& file);

// `request` as the recording has it: its message number and its host in place of ours.
std::string AsRecorded(const std::string& request, const WireExchange& recorded);

// The recorded response, for our request: with its message number, and the length that goes with
// it.
std::string ForRequest(const WireExchange& recorded, const std::string& request);

#endif
