// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_PLATFORM_IPMI_IPMIBMC_H
#define VARNEX_TESTS_PLATFORM_IPMI_IPMIBMC_H

#include <string>
#include <vector>

#include "support/EmulatedBmc.h"

// An emulated BMC of which the tests see the IPMI half.
class IpmiBmc : public EmulatedBmc {
public:
    // `ipmi`: the members of the scenario's section, one per line without indentation.
    explicit IpmiBmc(const std::string& ipmi = "", const std::string& address = "127.0.0.1");

    std::string Port() const;  // UDP, decimal
    std::string Kcs() const;   // for EMULATED_KCS

    // The lines of the record that hold `text`, in order.
    std::vector<std::string> Requests(const std::string& text) const;
};

#endif
