// SPDX-License-Identifier: Apache-2.0
#include "support/EmulatedBmc.h"

#include <boost/filesystem/operations.hpp>
#include <boost/json/parse.hpp>
#include <fstream>

#include "support/Peer.h"

namespace {

std::string FreshFolder() {
    const auto folder = boost::filesystem::temp_directory_path() /
                        boost::filesystem::unique_path("varnex-bmc-%%%%%%%%");
    boost::filesystem::create_directory(folder);
    return folder.string();
}

}  // namespace

EmulatedBmc::EmulatedBmc(const std::string& scenario, const std::vector<std::string>& arguments)
    : m_folder(FreshFolder()) {
    const std::string file = m_folder + "/scenario.yaml";
    std::ofstream(file) << "user: admin\npassword: secret\n" << scenario;
    std::vector<std::string> command = {VARNEX_EMULATED_BMC, "--scenario", file, "--state-dir",
                                        m_folder + "/state"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    m_peer = std::make_unique<Peer>(command);
    m_ready = boost::json::parse(m_peer->Line());
}

EmulatedBmc::~EmulatedBmc() {
    End();
    boost::system::error_code ignored;
    boost::filesystem::remove_all(m_folder, ignored);
}

void EmulatedBmc::End() { m_peer.reset(); }

std::string EmulatedBmc::Text(const char* pointer) const {
    return std::string(m_ready.at_pointer(pointer).as_string().c_str());
}

int EmulatedBmc::Number(const char* pointer) const {
    return m_ready.at_pointer(pointer).to_number<int>();
}

std::vector<std::string> EmulatedBmc::Requests() const {
    std::vector<std::string> requests;
    std::ifstream file(Text("/requests"));
    for (std::string line; std::getline(file, line);) {
        const boost::json::value request = boost::json::parse(line);
        const std::string method(request.at("method").as_string().c_str());
        if (request.at("service").as_string() == "cim") {
            const auto* called = request.at("headers").as_object().if_contains("CIMMethod");
            requests.push_back(method + " " +
                               (called != nullptr ? called->as_string().c_str() : "?"));
        } else {
            requests.push_back(method + " " + request.at("path").as_string().c_str());
        }
    }
    return requests;
}
