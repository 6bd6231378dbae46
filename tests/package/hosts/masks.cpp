// SPDX-License-Identifier: Apache-2.0
//
// A host that uses a service of the platform library, and nothing else of ours.
#include <LogSink.h>
#include <file_client.h>

#include <iostream>

int main() {
    Varnex::SetLogLevel(4);
    std::cout << Varnex::MaskedForDisplay("X-Auth-Token: secret") << '\n';
    return 0;
}
