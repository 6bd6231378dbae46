// SPDX-License-Identifier: Apache-2.0
#include "IpmiConnections.h"

#include <condition_variable>
#include <set>
#include <system_error>
#include <thread>
#include <vector>

#include "IpmiSessions.h"
#include "ipmi_watchers.h"

namespace {

struct Connections {
    std::mutex lock;
    std::set<ClientConnection*> all;
};

// Never destroyed: clients may be of static storage.
Connections& TheConnections() {
    static auto* const connections = new Connections;
    return *connections;
}

// What is left to be closed, and how far that is. Shared with a thread that may outlive the caller.
struct Closing {
    std::vector<IpmiSession> sessions;
    std::mutex lock;
    std::condition_variable changed;
    bool done = false;
};

// Those of all clients that are idle.
void TakeSessions(Closing& closing) {
    Connections& connections = TheConnections();
    const std::lock_guard<std::mutex> hold(connections.lock);
    for (ClientConnection* connection : connections.all) {
        const std::unique_lock<std::mutex> idle(connection->inUse, std::try_to_lock);
        if (!idle.owns_lock() || !connection->session.IsOpen()) continue;
        closing.sessions.push_back(std::move(connection->session));
    }
}

void Close(const std::shared_ptr<Closing>& closing) {
    for (IpmiSession& session : closing->sessions) session.Close();
    const std::lock_guard<std::mutex> over(closing->lock);
    closing->done = true;
    closing->changed.notify_all();
}

}  // namespace

void IpmiSession::Close() {
    const bool wasOpen = IsOpen();
    m_open.reset();
    relay.reset();
    if (wasOpen) ipmi_watchers::Disconnected(m_inBand);
}

ClientConnection::ClientConnection() {
    Connections& connections = TheConnections();
    const std::lock_guard<std::mutex> hold(connections.lock);
    connections.all.insert(this);
}

ClientConnection::~ClientConnection() {
    Connections& connections = TheConnections();
    const std::lock_guard<std::mutex> hold(connections.lock);
    connections.all.erase(this);
}

void Varnex::CloseIpmiSessions(std::chrono::milliseconds atMost) {
    const auto closing = std::make_shared<Closing>();
    TakeSessions(*closing);
    if (closing->sessions.empty()) return;
    std::unique_lock<std::mutex> hold(closing->lock);
    try {
        std::thread(Close, closing).detach();
    } catch (const std::system_error&) {
        return;  // no thread to be had: the BMC gives the sessions up by itself
    }
    closing->changed.wait_for(hold, atMost, [&] { return closing->done; });
}
