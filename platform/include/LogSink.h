// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_LOGSINK_H
#define VARNEX_PLATFORM_LOGSINK_H

#include <string>

#pragma GCC visibility push(default)

namespace Varnex {

// What a Log object emitted.
struct LogRecord {
    int level;               // 1 error, 2 warning, 3 info, 4 debug
    const char* sourceFile;  // path of the source without its extension
    int line;
    const std::string& text;  // whole and unmasked: may hold a session token and control bytes
};

// Receives every record of the process as it is emitted, whatever the log level. Receive() is
// called on the thread that logs, by several threads at once, and must not throw. A record that
// Receive() itself logs is written as usual but not given to sinks again.
class LogSink {
public:
    virtual ~LogSink() = default;
    virtual void Receive(const LogRecord& record) = 0;
};

// Adds and removes a sink; the caller keeps owning it. Once RemoveLogSink has returned, no thread
// is inside its Receive() any more; not to be called from within Receive().
void AddLogSink(LogSink* sink);
void RemoveLogSink(LogSink* sink);

// Records above `level` are not written. Default: 2, or what VARNEX_LOG_LEVEL says (0 to 4).
// Sinks are not affected.
void SetLogLevel(int level);

// Records are appended to this file instead of standard error; an empty path means standard error
// again. Default: standard error, or what VARNEX_LOG_FILE says. A new file is made with mode 0600.
// Returns false, with the reason in `error`, when the file cannot be opened; the earlier
// destination then stays.
bool SetLogFile(const std::string& path, std::string& error);

// How a record is written: a pattern of spdlog, of which %v is the text, %l the level's name, %g
// and %# the source file and line, %t the thread. VARNEX_LOG_FORMAT does the same from outside.
// An empty pattern means the default, which gives
//   2026-01-31 12:00:00.000 4711 warning src/common/rest/RedfishClient:42 text
void SetLogFormat(const std::string& pattern);

// `text` as the log writes it to a terminal or a file: secrets masked (those that HideInLog
// was given, the value after "X-Auth-Token:" and "Authorization:", a JSON member "Password", the
// password in scheme://user:password@), control bytes and bytes that are no UTF-8 written as \xNN,
// line ends too: one text, one line. For hosts that print texts of a BMC.
std::string MaskedForDisplay(const std::string& text);

// From now on `secret` is masked in everything that the log writes and in the two functions here,
// in each form in which a BMC may tell it back: as it is, in base64 (also base64url, also as a part
// of a longer text), in hexadecimal, and with percent, JSON or XML escapes around any of these. A
// secret of less than four bytes counts as a word of its own only: "abc" is not masked in "abcd".
// One of a single byte is not masked in base64 and hexadecimal, where it would be any word.
// With `user`, what HTTP sends for both (base64 of "user:secret") is masked for such a secret too.
// Records handed to sinks stay whole. Kept, readable in the process's memory, until the process
// ends; an empty secret is none. Thread-safe.
void HideInLog(const std::string& secret, const std::string& user = std::string());

// `text` with ten asterisks in the place of the secrets that HideInLog was given, and else as it
// is.
std::string WithoutHiddenSecrets(const std::string& text);

}  // namespace Varnex

#pragma GCC visibility pop

#endif
