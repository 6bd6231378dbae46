// SPDX-License-Identifier: Apache-2.0
// For test_host_range.py. Of each line of standard input, the second word on: behind "expand" an
// expression, answered by its hosts with commas between; behind "fold" such a list, answered by one
// expression. What is wrong is answered as "! REASON".

#include <iostream>
#include <string>
#include <vector>

#include "cli/OptionTable.h"
#include "cli/fleet/HostRange.h"

int main() {
    std::string verb;
    std::string text;
    while (std::cin >> verb >> text) {
        std::vector<std::string> hosts;
        std::string error;
        if (!Kemffdc::Fleet::ExpandHosts(text, hosts, error)) {
            std::cout << "! " << error << "\n";
        } else {
            std::cout << (verb == "fold" ? Kemffdc::Fleet::FoldHosts(hosts)
                                         : Kemffdc::Joined(hosts, ","))
                      << "\n";
        }
    }
    return 0;
}
