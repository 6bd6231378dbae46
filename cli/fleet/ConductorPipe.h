// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_CONDUCTORPIPE_H
#define KEMFFDC_FLEET_CONDUCTORPIPE_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "cli/TurnGate.h"
#include "shared/FileDescriptor.h"

namespace Kemffdc::Fleet {

// A worker's end of the pipe on which its conductor speaks: the line "go" gives it its turn to
// download, other lines mean nothing. When the pipe ends, nobody is there any more who could use
// what the worker does: it gets SIGTERM, once, from itself.
class ConductorPipe : public TurnGate {
public:
    // Listens on a thread of its own, which takes no signals. The descriptor is the caller's.
    explicit ConductorPipe(int descriptor);
    ~ConductorPipe() override;

    ConductorPipe(const ConductorPipe&) = delete;
    ConductorPipe& operator=(const ConductorPipe&) = delete;

    void Wait(const std::function<bool()>& stop) override;

private:
    void Listen();
    bool Take();  // false: the pipe has ended
    void OpenGate();

    const int m_descriptor;
    const shared::FileDescriptor m_stop;  // eventfd(2)
    std::string m_line;                   // that has not ended
    std::mutex m_lock;
    std::condition_variable m_opened;
    bool m_open = false;
    std::thread m_thread;
};

}  // namespace Kemffdc::Fleet

#endif
