// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_PLATFORM_IPMI_EMULATEDBMC_H
#define VARNEX_TESTS_PLATFORM_IPMI_EMULATEDBMC_H

#include <sys/types.h>

#include <string>
#include <vector>

// An emulated BMC of its own, which lives as long as the object. Its account is admin, "secret".
class EmulatedBmc {
public:
    // `ipmi`: the members of the scenario's section, one per line without indentation.
    explicit EmulatedBmc(const std::string& ipmi = "", const std::string& address = "127.0.0.1");
    ~EmulatedBmc();

    EmulatedBmc(const EmulatedBmc&) = delete;
    EmulatedBmc& operator=(const EmulatedBmc&) = delete;

    std::string Port() const { return m_port; }  // UDP, decimal
    std::string Kcs() const { return m_kcs; }    // for EMULATED_KCS

    // The lines of the record that hold `text`, in order.
    std::vector<std::string> Requests(const std::string& text) const;

    // Ends the process: the port is dead from here on.
    void End();

private:
    std::string m_folder;
    std::string m_port;
    std::string m_kcs;
    pid_t m_process = -1;
    int m_input = -1;  // closed, it ends the BMC
};

#endif
