// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_SUPPORT_PEER_H
#define VARNEX_TESTS_SUPPORT_PEER_H

#include <sys/types.h>

#include <string>
#include <vector>

// A server of the test's own, in a process of its own. It prints one line when it is ready and
// ends when its standard input closes; one that does not is killed.
class Peer {
public:
    // `command`: program and arguments. Waits for the line, at most 30 seconds.
    explicit Peer(const std::vector<std::string>& command);
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    const std::string& Line() const { return m_line; }
    pid_t Pid() const { return m_pid; }

private:
    void ReadLine(int fd);

    pid_t m_pid = -1;
    int m_input = -1;  // the peer's standard input
    std::string m_line;
};

// For daemons that print nothing and do not watch their input: runs until destroyed, ended by
// SIGTERM and, should that not do, by SIGKILL.
class Daemon {
public:
    // Waits until something listens on `port` of 127.0.0.1, at most 30 seconds.
    Daemon(const std::vector<std::string>& command, int port);
    ~Daemon();
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    bool IsUp() const { return m_up; }

private:
    pid_t m_pid = -1;
    bool m_up = false;
};

// A port of 127.0.0.1 that was free a moment ago.
int FreePort();

// The folder below which the daemons of foreign packages are unpacked; empty where they are not.
std::string Peers();

#endif
