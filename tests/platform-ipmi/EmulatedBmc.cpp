// SPDX-License-Identifier: Apache-2.0
#include "EmulatedBmc.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace {

constexpr std::chrono::seconds kStartTime{30};

std::string Indented(const std::string& lines) {
    std::istringstream stream(lines);
    std::string line, text;
    while (std::getline(stream, line)) text += "  " + line + "\n";
    return text;
}

std::string MakeFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "bmc-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
    return name;
}

// The first line, or nothing when it does not come in time.
std::string ReadLine(int file) {
    std::string line;
    const auto deadline = std::chrono::steady_clock::now() + kStartTime;
    while (std::chrono::steady_clock::now() < deadline) {
        pollfd ready{file, POLLIN, 0};
        char byte = 0;
        if (poll(&ready, 1, 1000) <= 0) continue;
        if (read(file, &byte, 1) != 1 || byte == '\n') return line;
        line += byte;
    }
    return {};
}

}  // namespace

EmulatedBmc::EmulatedBmc(const std::string& ipmi, const std::string& address)
    : m_folder(MakeFolder()) {
    const std::string scenario = m_folder + "/scenario.yaml";
    std::ofstream(scenario) << "user: admin\npassword: secret\n"
                            << (ipmi.empty() ? "" : "ipmi:\n" + Indented(ipmi));

    int input[2], output[2];
    if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    std::array<std::string, 8> words = {
        EMULATED_BMC,  "--scenario",        scenario, "--bind", address,
        "--state-dir", m_folder + "/state", ""};
    std::array<char*, 8> arguments{};
    for (std::size_t n = 0; n + 1 < arguments.size(); ++n) arguments[n] = words[n].data();
    const int error =
        posix_spawn(&m_process, EMULATED_BMC, &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(input[0]);
    close(output[1]);
    m_input = input[1];
    const std::string ready = error == 0 ? ReadLine(output[0]) : "";
    close(output[0]);
    if (ready.empty()) throw std::runtime_error("the emulated BMC does not start");

    std::istringstream stream(ready);
    boost::property_tree::ptree facts;
    read_json(stream, facts);
    m_port = facts.get<std::string>("ipmi.port");
    m_kcs = facts.get<std::string>("ipmi.kcs");
}

EmulatedBmc::~EmulatedBmc() {
    End();
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
}

std::vector<std::string> EmulatedBmc::Requests(const std::string& text) const {
    std::ifstream file(m_folder + "/state/requests.jsonl");
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        if (line.find(text) != std::string::npos) lines.push_back(line);
    }
    return lines;
}

void EmulatedBmc::End() {
    if (m_process < 0) return;
    close(m_input);
    for (int tries = 0; waitpid(m_process, nullptr, WNOHANG) == 0; ++tries) {
        if (tries == 100) kill(m_process, SIGKILL);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    m_process = -1;
}
