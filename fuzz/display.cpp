// SPDX-License-Identifier: Apache-2.0
//
// Any text for a terminal: no secret and no control byte is left of it, whatever stands around.
#include <cstddef>
#include <cstdint>
#include <string>

#include "LogSink.h"
#include "Support.h"

namespace {

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    // Letters that neither the masks nor, but for bad luck, the text around holds.
    const std::string secret = "zQ7vXw9";
    if (text.find(secret) != std::string::npos) return 0;

    const std::string shown = Varnex::MaskedForDisplay(text);
    for (const char c : shown) Require(!IsControl(c));

    const std::string header = Varnex::MaskedForDisplay(text + "\nX-Auth-Token: " + secret + "\n");
    Require(header.find(secret) == std::string::npos);
    return 0;
}
