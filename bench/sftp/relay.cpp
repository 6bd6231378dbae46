// SPDX-License-Identifier: Apache-2.0
//
// bench_sftp_relay TARGET-PORT MILLISECONDS: passes connections on to a port of 127.0.0.1, every
// byte MILLISECONDS late in either direction, and no slower than they come. Prints the port on
// which it listens, and ends when its standard input closes.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using Time = std::chrono::steady_clock::time_point;

constexpr std::size_t kPiece = 256 * 1024;
constexpr std::size_t kMostPieces = 256;  // on the way at once

struct Piece {
    Time due;
    std::vector<char> bytes;  // empty: the end
};

// What is on the way in one direction.
class Line {
public:
    void Put(Piece piece) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_pieces.size() < kMostPieces; });
        m_pieces.push_back(std::move(piece));
        m_changed.notify_all();
    }

    Piece Take() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return !m_pieces.empty(); });
        Piece piece = std::move(m_pieces.front());
        m_pieces.pop_front();
        m_changed.notify_all();
        return piece;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Piece> m_pieces;
};

// A pair of connected sockets, closed with the last thread that uses it.
struct Pair {
    Pair(int theClient, int theServer) : client(theClient), server(theServer) {}
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;
    ~Pair() {
        close(client);
        close(server);
    }
    int client;
    int server;
};

sockaddr_in Loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int MakeSocket() {
    const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (made >= 0) return made;
    std::perror("socket");
    std::exit(1);
}

void SendAtOnce(int file) {
    const int on = 1;
    setsockopt(file, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

bool WriteAll(int file, const std::vector<char>& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t sent = send(file, &bytes[done], bytes.size() - done, MSG_NOSIGNAL);
        if (sent <= 0) return false;
        done += static_cast<std::size_t>(sent);
    }
    return true;
}

void Receive(int file, Line& line, std::chrono::microseconds delay) {
    std::vector<char> bytes(kPiece);
    ssize_t got = 0;
    while ((got = recv(file, bytes.data(), bytes.size(), 0)) > 0) {
        line.Put({std::chrono::steady_clock::now() + delay, {bytes.begin(), bytes.begin() + got}});
    }
    line.Put({std::chrono::steady_clock::now() + delay, {}});
}

void Deliver(int file, Line& line) {
    bool open = true;
    while (true) {
        const Piece piece = line.Take();
        if (piece.bytes.empty()) break;
        std::this_thread::sleep_until(piece.due);
        open = open && WriteAll(file, piece.bytes);
    }
    shutdown(file, SHUT_WR);
}

void Pass(const std::shared_ptr<Pair>& pair, int from, int to, std::chrono::microseconds delay) {
    const auto line = std::make_shared<Line>();
    std::thread([pair, line, from, delay] { Receive(from, *line, delay); }).detach();
    std::thread([pair, line, to] { Deliver(to, *line); }).detach();
}

void Serve(int listener, int target, std::chrono::microseconds delay) {
    while (true) {
        const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) return;
        const auto pair = std::make_shared<Pair>(client, MakeSocket());
        const sockaddr_in address = Loopback(target);
        if (connect(pair->server, reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
            0) {
            continue;
        }
        SendAtOnce(pair->client);
        SendAtOnce(pair->server);
        Pass(pair, pair->client, pair->server, delay);
        Pass(pair, pair->server, pair->client, delay);
    }
}

}  // namespace

int main(int count, char** words) {
    if (count != 3) return 2;
    const int listener = MakeSocket();
    sockaddr_in address = Loopback(0);
    socklen_t size = sizeof address;
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        listen(listener, 16) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        std::perror("listen");
        return 1;
    }
    const std::chrono::microseconds delay(static_cast<long>(std::atof(words[2]) * 1000));
    std::thread(Serve, listener, std::atoi(words[1]), delay).detach();
    std::cout << ntohs(address.sin_port) << std::endl;
    while (std::cin.get() != EOF) {
    }
    std::_Exit(0);  // threads still wait for their connections
}
