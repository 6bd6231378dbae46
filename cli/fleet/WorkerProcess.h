// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_WORKERPROCESS_H
#define KEMFFDC_FLEET_WORKERPROCESS_H

#include <boost/asio/io_context.hpp>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "cli/terminal/Secret.h"

namespace Kemffdc::Fleet {

// One process that works on one BMC, as the conductor sees it: it is told one line and then short
// words, it says lines, it ends. It has three pipes and no other descriptor of this process, no
// variable that holds a password, and a session of its own: Ctrl-C on the terminal is the
// conductor's affair. Belongs to the thread of its io_context; nothing blocks.
class WorkerProcess {
public:
    // A line that is longer than this is no line of a worker.
    static constexpr std::size_t kLongestLine = std::size_t{8} << 20;

    struct End {
        int status = 0;        // as waitpid(2) tells it
        bool babbled = false;  // it was killed for a line that never ended
        std::string errors;    // the end of what it has written to standard error
    };
    struct Listener {
        std::function<void(std::string line)> said;
        // The last call; the object may be destroyed in it.
        std::function<void(const End& end)> ended;
    };

    // Starts `command`, the program's path and its arguments, and tells it `hello` and a line end.
    // Throws std::system_error where no process can be started.
    WorkerProcess(boost::asio::io_context& context, const std::vector<std::string>& command,
                  Secret hello, Listener listener);
    ~WorkerProcess();  // kills it, and says nothing any more

    WorkerProcess(const WorkerProcess&) = delete;
    WorkerProcess& operator=(const WorkerProcess&) = delete;

    void Tell(const std::string& line);
    // There is nothing more to tell: a worker ends at that.
    void CloseInput();
    // Ends it and all that it has started.
    void Kill();

private:
    class State;
    std::shared_ptr<State> m_state;
};

}  // namespace Kemffdc::Fleet

#endif
