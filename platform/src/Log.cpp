// SPDX-License-Identifier: Apache-2.0
#include "Log.h"

#include <fcntl.h>
#include <poll.h>
#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <locale>
#include <mutex>
#include <sstream>
#include <string>

#include "HiddenSecrets.h"
#include "Listeners.h"
#include "LogSink.h"
#include "environment.h"
#include "masking.h"

namespace {

constexpr char kLogSource[] = "platform/src/Log";
constexpr char kDefaultFormat[] = "%Y-%m-%d %H:%M:%S.%e %t %l %g:%# %v";
constexpr int kDefaultLevel = 2;
constexpr int kMostDetailed = 4;

spdlog::level::level_enum SpdlogLevel(int level) {
    if (level <= 1) return spdlog::level::err;
    if (level == 2) return spdlog::level::warn;
    return level == 3 ? spdlog::level::info : spdlog::level::debug;
}

// A record goes out in one write() where the system takes it in one and it is not a very long one,
// so that processes that share a file do not mix their lines.
void WriteWhole(int fd, const char* data, std::size_t size) {
    constexpr int kPatience = 1000;  // milliseconds for a full pipe that must not block
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written >= 0) {
            data += written;
            size -= static_cast<std::size_t>(written);
        } else if (errno == EAGAIN) {
            pollfd waiting{fd, POLLOUT, 0};
            if (::poll(&waiting, 1, kPatience) <= 0) return;
        } else if (errno != EINTR) {
            return;
        }
    }
}

// Standard error, or a file of its own.
class Destination : public spdlog::sinks::base_sink<std::mutex> {
public:
    // Takes ownership of `fd`; standard error is only borrowed.
    void Redirect(int fd) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (m_fd != STDERR_FILENO) ::close(m_fd);
        m_fd = fd;
    }

protected:
    // The record's payload is the text as it was logged.
    void sink_it_(const spdlog::details::log_msg& record) override {
        if (record.payload.size() > kLong) {
            WriteLong(record);
            return;
        }
        const std::string text = ForDisplay({record.payload.data(), record.payload.size()});
        const std::string line = Line(record, text);
        WriteWhole(m_fd, line.data(), line.size());
    }
    void flush_() override {}

private:
    // What is longer is written in pieces: a body of many megabytes is not copied again and again.
    static constexpr std::size_t kLong = 1024UL * 1024;

    std::string Line(spdlog::details::log_msg record, const std::string& text) {
        record.payload = text;
        spdlog::memory_buf_t line;
        formatter_->format(record, line);
        return {line.data(), line.size()};
    }

    void WriteLong(const spdlog::details::log_msg& record) {
        const std::string place = "\x1F";  // of the text in the line; no masked text holds it
        const std::string line = Line(record, place);
        std::size_t written = 0;
        for (std::size_t at = line.find(place); at != std::string::npos;
             at = line.find(place, written)) {
            WriteWhole(m_fd, line.data() + written, at - written);
            ForDisplay(
                {record.payload.data(), record.payload.size()},
                [this](const std::string& piece) { WriteWhole(m_fd, piece.data(), piece.size()); });
            written = at + place.size();
        }
        WriteWhole(m_fd, line.data() + written, line.size() - written);
    }

    int m_fd = STDERR_FILENO;
};

// What the process writes, and where. One of it, never destroyed: destructors that run at the end
// of the process may still log.
class Writer {
public:
    static Writer& Get() {
        static Writer& writer = Made();
        return writer;
    }

    void Write(int level, const char* sourceFile, int line, const std::string& text) {
        if (std::max(level, 1) > m_level) return;
        m_logger.log(spdlog::source_loc(sourceFile, line, ""), SpdlogLevel(level), text);
    }

    void SetLevel(int level) { m_level = std::min(std::max(level, 0), kMostDetailed); }

    bool SetFile(const std::string& path, std::string& error) {
        int fd = STDERR_FILENO;
        if (!path.empty()) {
            fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, 0600);
        }
        if (fd < 0) {
            error = std::strerror(errno);
            return false;
        }
        m_destination->Redirect(fd);
        return true;
    }

    void SetFormat(const std::string& format) {
        m_destination->set_pattern(format.empty() ? kDefaultFormat : format);
    }

private:
    Writer() : m_destination(std::make_shared<Destination>()), m_logger("varnex", m_destination) {
        m_logger.set_level(spdlog::level::trace);  // m_level decides
        // A record that cannot be written is lost.
        m_logger.set_error_handler([](const std::string&) {});
        SetFormat("");
    }

    static Writer& Made() {
        auto& writer = *new Writer;
        writer.ApplyEnvironment();
        return writer;
    }

    void ApplyEnvironment() {
        SetFormat(EnvironmentText("VARNEX_LOG_FORMAT"));
        std::string error;
        const std::string file = EnvironmentText("VARNEX_LOG_FILE");
        const bool opened = SetFile(file, error);
        const std::string level = EnvironmentText("VARNEX_LOG_LEVEL");
        const bool goodLevel = level.size() == 1 && level[0] >= '0' && level[0] <= '4';
        if (goodLevel) SetLevel(level[0] - '0');
        if (!opened) {
            Warn(__LINE__, "VARNEX_LOG_FILE: " + file + " cannot be opened: " + error +
                               "; standard error is used.");
        }
        if (!goodLevel && !level.empty()) {
            Warn(__LINE__,
                 "VARNEX_LOG_LEVEL: \"" + level + "\" is no number from 0 to 4; level 2 is used.");
        }
    }

    void Warn(int line, const std::string& text) { Write(2, kLogSource, line, text); }

    std::atomic<int> m_level{kDefaultLevel};
    std::shared_ptr<Destination> m_destination;
    spdlog::logger m_logger;
};

// Never destroyed, like the writer.
Listeners<Varnex::LogSink>& Sinks() {
    static auto& sinks = *new Listeners<Varnex::LogSink>;
    return sinks;
}

}  // namespace

struct Log::Impl {
    int level;
    std::string sourceFile;
    int line;
    std::ostringstream stream;
};

Log::Log(int level, const char* sourceFile, int line)
    : m_impl(new Impl{level, sourceFile == nullptr ? "" : sourceFile, line, {}}) {
    m_impl->stream.imbue(std::locale::classic());
}

Log::~Log() {
    try {
        const std::string text = m_impl->stream.str();
        const char* const source = m_impl->sourceFile.c_str();
        Writer::Get().Write(m_impl->level, source, m_impl->line, text);
        const Varnex::LogRecord record{m_impl->level, source, m_impl->line, text};
        Sinks().ForEach([&](Varnex::LogSink& sink) { sink.Receive(record); });
    } catch (...) {  // lost, but the statement that logged goes on
    }
}

std::ostream& Log::Stream() { return m_impl->stream; }

void Varnex::AddLogSink(LogSink* sink) { Sinks().Add(sink); }

void Varnex::RemoveLogSink(LogSink* sink) { Sinks().Remove(sink); }

void Varnex::SetLogLevel(int level) { Writer::Get().SetLevel(level); }

bool Varnex::SetLogFile(const std::string& path, std::string& error) {
    return Writer::Get().SetFile(path, error);
}

void Varnex::SetLogFormat(const std::string& format) { Writer::Get().SetFormat(format); }

std::string Varnex::MaskedForDisplay(const std::string& text) { return ForDisplay(text); }

void Varnex::HideInLog(const std::string& secret, const std::string& user) {
    hidden_secrets::Add(secret, user);
}

std::string Varnex::WithoutHiddenSecrets(const std::string& text) { return WithoutHidden(text); }
