// SPDX-License-Identifier: Apache-2.0
// POSIX has dropped vfork(2), so Boost.Process looks for it in older editions alone; Linux keeps
// it.
#define BOOST_POSIX_HAS_VFORK 1

#include "cli/fleet/WorkerProcess.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/write.hpp>
#include <boost/process/args.hpp>
#include <boost/process/child.hpp>
#include <boost/process/env.hpp>
#include <boost/process/environment.hpp>
#include <boost/process/exe.hpp>
#include <boost/process/extend.hpp>
#include <boost/process/posix.hpp>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

extern "C" {  // that of glibc 2.36 does not say so itself
#include <sys/pidfd.h>
}
#include <linux/close_range.h>

#include "shared/FileDescriptor.h"

namespace Kemffdc::Fleet {
namespace {

namespace asio = boost::asio;
namespace process = boost::process;
using Descriptor = asio::posix::stream_descriptor;
using shared::FileDescriptor;

constexpr std::size_t kErrorsKept = 2048;
constexpr std::size_t kPiece = std::size_t{64} << 10;
constexpr const char* kSecretVariables[] = {"KEMFFDC_PASSWORD", "KEMFFDC_EXPORT_PASSWORD"};

[[noreturn]] void Fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

struct Pipe {
    FileDescriptor out;  // to read from
    FileDescriptor in;
};

// Closed in every process that is started, but where it takes the place of a standard stream.
Pipe MakePipe() {
    std::array<int, 2> ends{-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) Fail("pipe");
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

void Adopt(FileDescriptor& descriptor, Descriptor& stream) {
    fcntl(descriptor.Get(), F_SETFL, O_NONBLOCK);
    stream.assign(descriptor.Release());
}

process::environment EnvironmentWithoutSecrets() {
    process::environment variables = boost::this_process::environment();
    for (const char* name : kSecretVariables) variables.erase(name);
    return variables;
}

// In the child, before it becomes the worker. What this process was given by its own parent stays
// behind as well.
void LeaveFamily() {
    (void)setsid();
    (void)close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
}

// What has come into a pipe, now.
enum class Came { kSomething, kNothingYet, kEnd };

Came Read(Descriptor& stream, std::string& piece) {
    static std::array<char, kPiece> buffer;  // one thread, one piece at a time
    const ssize_t got = read(stream.native_handle(), buffer.data(), buffer.size());
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) return Came::kNothingYet;
    if (got <= 0) return Came::kEnd;
    piece.assign(buffer.data(), static_cast<std::size_t>(got));
    return Came::kSomething;
}

}  // namespace

// Lives until the process has ended and all that it has said has been passed on.
class WorkerProcess::State : public std::enable_shared_from_this<State> {
public:
    State(asio::io_context& context, Secret hello, Listener listener)
        : m_input(context),
          m_output(context),
          m_errors(context),
          m_exit(context),
          m_hello(std::move(hello)),
          m_listener(std::move(listener)) {}

    void Start(const std::vector<std::string>& command) {
        Pipe input = MakePipe();
        Pipe output = MakePipe();
        Pipe errors = MakePipe();
        std::error_code error;
        // vfork(2): a conductor of many workers has much memory that fork(2) would copy the tables
        // of. Its child may do nothing but prepare itself.
        m_child = process::child(
            process::exe = command.front(),
            process::args = std::vector<std::string>(command.begin() + 1, command.end()),
            process::posix::fd.bind(STDIN_FILENO, input.out.Get()),
            process::posix::fd.bind(STDOUT_FILENO, output.in.Get()),
            process::posix::fd.bind(STDERR_FILENO, errors.in.Get()), EnvironmentWithoutSecrets(),
            process::extend::on_exec_setup = [](auto&) { LeaveFamily(); },
            process::posix::use_vfork, error);
        if (error) throw std::system_error(error, "start a worker");
        FileDescriptor exit(pidfd_open(m_child.id(), 0));
        if (exit.Get() < 0) Fail("watch a worker");
        Adopt(input.in, m_input);
        Adopt(output.out, m_output);
        Adopt(errors.out, m_errors);
        m_exit.assign(exit.Release());
    }

    void Begin() {
        Listen(m_output,
               [self = shared_from_this()](const std::string& piece) { self->TakeOutput(piece); });
        Listen(m_errors,
               [self = shared_from_this()](const std::string& piece) { self->TakeErrors(piece); });
        m_exit.async_wait(Descriptor::wait_read,
                          [self = shared_from_this()](const boost::system::error_code& error) {
                              if (!error) self->Reap();
                          });
        asio::async_write(m_input,
                          std::array<asio::const_buffer, 2>{asio::buffer(m_hello.Reveal()),
                                                            asio::buffer("\n", 1)},
                          [self = shared_from_this()](const boost::system::error_code&,
                                                      std::size_t) { self->HelloIsTold(); });
    }

    void Tell(const std::string& line) {
        m_toTell += line + '\n';
        if (m_hello.Empty()) TellRest();
    }

    void CloseInput() {
        boost::system::error_code ignored;
        m_input.close(ignored);
    }

    void Kill() {
        if (m_reaped) return;
        ::kill(-m_child.id(), SIGKILL);
        ::kill(m_child.id(), SIGKILL);  // should it have no session of its own
    }

    void Silence() { m_listener = {}; }

    void Abandon() {
        Silence();
        boost::system::error_code ignored;
        for (Descriptor* stream : {&m_input, &m_output, &m_errors, &m_exit}) stream->close(ignored);
        if (m_reaped || !m_child.valid()) return;
        Kill();
        std::error_code unknown;
        m_child.wait(unknown);
        m_reaped = true;
    }

private:
    template <class Take>
    void Listen(Descriptor& stream, Take take) {
        stream.async_wait(Descriptor::wait_read, [self = shared_from_this(), &stream,
                                                  take](const boost::system::error_code& error) {
            std::string piece;
            if (error || self->m_reaped) return;
            const Came came = Read(stream, piece);
            if (came == Came::kSomething) take(piece);
            if (came != Came::kEnd) self->Listen(stream, take);
        });
    }

    void HelloIsTold() {
        m_hello = Secret();
        TellRest();
    }

    // Words of a few bytes, to a worker that reads one at a time: they always fit into the pipe.
    void TellRest() {
        boost::system::error_code ignored;
        if (!m_toTell.empty()) m_input.write_some(asio::buffer(m_toTell), ignored);
        m_toTell.clear();
    }

    void TakeOutput(const std::string& piece) {
        std::size_t from = 0;
        for (std::size_t end = piece.find('\n'); end != std::string::npos;
             end = piece.find('\n', from)) {
            m_line.append(piece, from, end - from);
            from = end + 1;
            Say(std::exchange(m_line, {}));
        }
        m_line.append(piece, from, std::string::npos);
        if (m_line.size() <= kLongestLine) return;
        m_end.babbled = true;
        m_line.clear();
        Kill();
    }

    void Say(std::string line) {
        // A copy: what is said may end this object's owner.
        const auto said = m_listener.said;
        if (said && !m_end.babbled) said(std::move(line));
    }

    void TakeErrors(const std::string& piece) {
        m_end.errors += piece;
        if (m_end.errors.size() > kErrorsKept) {
            m_end.errors.erase(0, m_end.errors.size() - kErrorsKept);
        }
    }

    // It has ended: what it has said stands in the pipes, though another process may hold them
    // open.
    void Reap() {
        std::string piece;
        while (Read(m_output, piece) == Came::kSomething) TakeOutput(piece);
        while (Read(m_errors, piece) == Came::kSomething) TakeErrors(piece);
        std::error_code unknown;
        m_child.wait(unknown);
        m_end.status = m_child.native_exit_code();
        m_reaped = true;
        boost::system::error_code ignored;
        for (Descriptor* stream : {&m_input, &m_output, &m_errors, &m_exit}) stream->close(ignored);
        const auto ended = m_listener.ended;
        if (ended) ended(m_end);
    }

    Descriptor m_input;
    Descriptor m_output;
    Descriptor m_errors;
    Descriptor m_exit;  // pidfd_open(2): readable once it has ended
    process::child m_child;
    bool m_reaped = false;
    Secret m_hello;
    std::string m_toTell;
    std::string m_line;  // that has not ended yet
    End m_end;
    Listener m_listener;
};

WorkerProcess::WorkerProcess(asio::io_context& context, const std::vector<std::string>& command,
                             Secret hello, Listener listener)
    : m_state(std::make_shared<State>(context, std::move(hello), std::move(listener))) {
    m_state->Start(command);
    m_state->Begin();
}

WorkerProcess::~WorkerProcess() { m_state->Abandon(); }

void WorkerProcess::Tell(const std::string& line) { m_state->Tell(line); }
void WorkerProcess::CloseInput() { m_state->CloseInput(); }
void WorkerProcess::Kill() { m_state->Kill(); }

}  // namespace Kemffdc::Fleet
