// SPDX-License-Identifier: Apache-2.0
#include "support/Peer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace {

using std::chrono::steady_clock;
constexpr std::chrono::seconds kPatience(30);

// -1: standard input is empty, standard output goes where the test's goes.
pid_t Spawn(const std::vector<std::string>& command, int input, int output) {
    std::vector<char*> words;
    words.reserve(command.size() + 1);
    for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (input >= 0) posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    if (input < 0) {
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }
    if (output >= 0) posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    pid_t pid = -1;
    const int failure = posix_spawn(&pid, words[0], &actions, nullptr, words.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) throw std::runtime_error("cannot start " + command[0]);
    return pid;
}

bool EndsWithin(pid_t pid, std::chrono::milliseconds time) {
    const auto deadline = steady_clock::now() + time;
    while (steady_clock::now() < deadline) {
        if (waitpid(pid, nullptr, WNOHANG) != 0) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
}

void Kill(pid_t pid) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

int LoopbackSocket(int port, sockaddr_in& address) {
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

bool Listens(int port) {
    sockaddr_in address{};
    const int fd = LoopbackSocket(port, address);
    const bool up = connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    close(fd);
    return up;
}

}  // namespace

Peer::Peer(const std::vector<std::string>& command) {
    int input[2];
    int output[2];
    if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    m_pid = Spawn(command, input[0], output[1]);
    close(input[0]);
    close(output[1]);
    m_input = input[1];
    ReadLine(output[0]);
    close(output[0]);
}

void Peer::ReadLine(int fd) {
    const auto deadline = steady_clock::now() + kPatience;
    char c = '\0';
    while (c != '\n') {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - steady_clock::now());
        pollfd waiting{fd, POLLIN, 0};
        if (left.count() <= 0 || poll(&waiting, 1, static_cast<int>(left.count())) < 0) break;
        if (read(fd, &c, 1) != 1) break;
        m_line += c;
    }
    if (c != '\n') throw std::runtime_error("the peer did not get ready: " + m_line);
}

Peer::~Peer() {
    close(m_input);
    if (!EndsWithin(m_pid, kPatience)) Kill(m_pid);
}

Daemon::Daemon(const std::vector<std::string>& command, int port) {
    m_pid = Spawn(command, -1, -1);
    const auto deadline = steady_clock::now() + kPatience;
    while (!(m_up = Listens(port)) && steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

Daemon::~Daemon() {
    kill(m_pid, SIGTERM);
    if (!EndsWithin(m_pid, kPatience)) Kill(m_pid);
}

int FreePort() {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    const int fd = LoopbackSocket(0, address);
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        throw std::runtime_error("no free port");
    }
    close(fd);
    return ntohs(address.sin_port);
}

std::string Peers() {
    const char* folder = std::getenv("VARNEX_PEERS");
    return folder == nullptr ? "" : folder;
}
