// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_SUPPORT_EMULATEDBMC_H
#define VARNEX_TESTS_SUPPORT_EMULATEDBMC_H

#include <boost/json/value.hpp>
#include <memory>
#include <string>
#include <vector>

class Peer;

// An emulated BMC of the test's own, in a process of its own. Its account is admin, "secret".
class EmulatedBmc {
public:
    // `scenario`: the YAML of docs/emulator.md, without the account. `arguments`: further options
    // of emulator/emulated-bmc.
    explicit EmulatedBmc(const std::string& scenario = "",
                         const std::vector<std::string>& arguments = {});
    ~EmulatedBmc();
    EmulatedBmc(const EmulatedBmc&) = delete;
    EmulatedBmc& operator=(const EmulatedBmc&) = delete;

    // What it told when it was ready.
    const boost::json::value& Ready() const { return m_ready; }
    std::string Text(const char* pointer) const;  // of Ready(), by JSON pointer (RFC 6901)
    int Number(const char* pointer) const;

    // What it was asked for, one line a request: "GET /redfish/v1/". Of CIM, "POST METHOD".
    std::vector<std::string> Requests() const;

    // Ends the process: its ports are dead from here on.
    void End();

private:
    std::string m_folder;
    std::unique_ptr<Peer> m_peer;
    boost::json::value m_ready;
};

#endif
