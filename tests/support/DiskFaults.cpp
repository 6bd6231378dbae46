// SPDX-License-Identifier: Apache-2.0
#include "support/DiskFaults.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <vector>

#define EXPORTED __attribute__((visibility("default")))

namespace {

const std::map<std::string, int> kErrors = {
    {"EACCES", EACCES}, {"EBUSY", EBUSY},   {"EDQUOT", EDQUOT}, {"EINTR", EINTR}, {"EIO", EIO},
    {"EMFILE", EMFILE}, {"ENOENT", ENOENT}, {"ENOSPC", ENOSPC}, {"EPERM", EPERM}, {"EROFS", EROFS}};

struct Rule {
    std::string call;
    std::string path;
    int first = 1;
    int last = INT_MAX;
    std::string what;
    int error = 0;
    std::size_t most = SIZE_MAX;  // bytes of a write
    long delay = 0;               // milliseconds
    mutable int seen = 0;
};

struct Fate {
    int error = 0;
    std::size_t most = SIZE_MAX;
};

int Number(const std::string& text) {
    std::size_t end = 0;
    const int number = std::stoi(text, &end);
    if (end != text.size() || number < 0) throw std::invalid_argument(text);
    return number;
}

void ReadNth(std::string text, Rule& rule) {
    if (text == "*") return;
    const bool on = !text.empty() && text.back() == '+';
    if (on) text.pop_back();
    rule.first = Number(text);
    if (!on) rule.last = rule.first;
}

void ReadWhat(const std::string& text, Rule& rule) {
    rule.what = text;
    if (text == "none") return;
    if (text.rfind("short=", 0) == 0) {
        rule.most = static_cast<std::size_t>(Number(text.substr(6)));
    } else if (text.rfind("delay=", 0) == 0) {
        rule.delay = Number(text.substr(6));
    } else if (kErrors.count(text) != 0) {
        rule.error = kErrors.at(text);
    } else {
        throw std::invalid_argument(text);
    }
}

Rule ReadRule(const std::string& text) {
    Rule rule;
    std::istringstream parts(text);
    std::string nth;
    std::string what;
    std::getline(parts, rule.call, ':');
    std::getline(parts, rule.path, ':');
    std::getline(parts, nth, ':');
    std::getline(parts, what);
    const auto calls = {"open", "write", "fsync", "close", "rename", "unlink"};
    if (std::find(calls.begin(), calls.end(), rule.call) == calls.end()) {
        throw std::invalid_argument(rule.call);
    }
    ReadNth(nth, rule);
    ReadWhat(what, rule);
    return rule;
}

std::vector<Rule> ReadRules(const std::string& text) {
    std::vector<Rule> rules;
    std::istringstream list(text);
    for (std::string rule; std::getline(list, rule, ';');) {
        try {
            rules.push_back(ReadRule(rule));
        } catch (const std::exception&) {
            throw std::invalid_argument("no rule of a failing disk: " + rule);
        }
    }
    return rules;
}

// The C library's own, past this one. A plain pointer: it is asked for before any constructor.
template <typename Function>
Function Next(Function, const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}
#define NEXT(name) static const auto next = Next(&::name, #name)

class Disk {
public:
    // Never destroyed: files are closed after the last destructor, too.
    static Disk& Get() {
        static Disk* const disk = new Disk;
        return *disk;
    }

    void Set(std::vector<Rule> rules) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_rules = std::move(rules);
        m_active = !m_rules.empty();
        m_played = 0;
    }

    bool IsActive() const { return m_active; }
    int Played() const { return m_played; }

    // One call on these paths is about to be made.
    Fate Play(const char* call, std::initializer_list<std::string> paths) {
        Fate fate;
        long delay = 0;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            for (const Rule& rule : m_rules) Apply(rule, call, paths, fate, delay);
        }
        if (delay > 0) {
            const timespec time{delay / 1000, delay % 1000 * 1000000};
            nanosleep(&time, nullptr);
        }
        return fate;
    }

private:
    Disk() {
        const char* rules = std::getenv("VARNEX_DISK_FAULTS");
        const char* record = std::getenv("VARNEX_DISK_FAULTS_RECORD");
        if (record != nullptr) m_record = record;
        if (rules == nullptr) return;
        try {
            Set(ReadRules(rules));
        } catch (const std::invalid_argument& error) {
            std::fprintf(stderr, "VARNEX_DISK_FAULTS: %s\n", error.what());
            _exit(2);
        }
    }

    void Apply(const Rule& rule, const char* call, std::initializer_list<std::string> paths,
               Fate& fate, long& delay) {
        const auto found = std::find_if(paths.begin(), paths.end(), [&rule](const std::string& p) {
            return p.rfind(rule.path, 0) == 0;
        });
        if (rule.call != call || found == paths.end()) return;
        ++rule.seen;
        if (rule.seen < rule.first || rule.seen > rule.last) return;
        if (rule.error != 0) fate.error = rule.error;
        fate.most = std::min(fate.most, rule.most);
        delay += rule.delay;
        if (rule.what != "none") ++m_played;
        Record(rule.call + " " + std::to_string(rule.seen) + " " + rule.what + " " + *found + "\n");
    }

    // By system calls: no rule is played on the record.
    void Record(const std::string& line) const {
        if (m_record.empty()) return;
        const long fd = syscall(SYS_openat, AT_FDCWD, m_record.c_str(),
                                O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        if (fd < 0) return;
        syscall(SYS_write, fd, line.data(), line.size());
        syscall(SYS_close, fd);
    }

    std::mutex m_mutex;
    std::vector<Rule> m_rules;
    std::string m_record;
    std::atomic<bool> m_active{false};
    std::atomic<int> m_played{0};
};

// Set while this library is at work: what it calls itself is nobody's disk.
thread_local bool busy = false;

std::string LinkTarget(const std::string& link) {
    char path[PATH_MAX];
    const long size = syscall(SYS_readlink, link.c_str(), path, sizeof path);
    return size < 0 ? "" : std::string(path, static_cast<std::size_t>(size));
}

std::string PathOf(int fd) { return LinkTarget("/proc/self/fd/" + std::to_string(fd)); }

std::string PathOf(int folder, const char* name) {
    if (name[0] == '/') return name;
    return (folder == AT_FDCWD ? LinkTarget("/proc/self/cwd") : PathOf(folder)) + "/" + name;
}

template <typename... Paths>
Fate Before(const char* call, const Paths&... paths) {
    if (busy) return {};
    busy = true;
    Fate fate;
    if (Disk::Get().IsActive()) fate = Disk::Get().Play(call, {paths()...});
    busy = false;
    if (fate.error != 0) errno = fate.error;
    return fate;
}

Fate BeforeOpen(int folder, const char* name) {
    return Before("open", [&] { return PathOf(folder, name); });
}

Fate BeforeUse(const char* call, int fd) {
    return Before(call, [&] { return PathOf(fd); });
}

Fate BeforeUnlink(int folder, const char* name) {
    return Before("unlink", [&] { return PathOf(folder, name); });
}

Fate BeforeRename(int fromFolder, const char* from, int toFolder, const char* to) {
    return Before(
        "rename", [&] { return PathOf(fromFolder, from); }, [&] { return PathOf(toFolder, to); });
}

mode_t ModeFor(int flags, va_list arguments) {
    const bool created = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return created ? va_arg(arguments, mode_t) : 0;
}

int Open(int folder, const char* name, int flags, mode_t mode) {
    if (BeforeOpen(folder, name).error != 0) return -1;
    using Openat = int (*)(int, const char*, int, ...);
    static const auto next = reinterpret_cast<Openat>(dlsym(RTLD_NEXT, "openat64"));
    return next(folder, name, flags, mode);
}

}  // namespace

DiskFaults::DiskFaults(const std::string& rules) { Disk::Get().Set(ReadRules(rules)); }

DiskFaults::~DiskFaults() { Disk::Get().Set({}); }

int DiskFaults::Played() const { return Disk::Get().Played(); }

extern "C" {

// NOLINTBEGIN(cert-dcl50-cpp): their form is given
EXPORTED int open(const char* name, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeFor(flags, arguments);
    va_end(arguments);
    return Open(AT_FDCWD, name, flags, mode);
}

EXPORTED int open64(const char* name, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeFor(flags, arguments);
    va_end(arguments);
    return Open(AT_FDCWD, name, flags, mode);
}

EXPORTED int openat(int folder, const char* name, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeFor(flags, arguments);
    va_end(arguments);
    return Open(folder, name, flags, mode);
}

EXPORTED int openat64(int folder, const char* name, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeFor(flags, arguments);
    va_end(arguments);
    return Open(folder, name, flags, mode);
}
// NOLINTEND(cert-dcl50-cpp)

// What fortified programs call in their place.
EXPORTED int __open_2(const char* name, int flags) { return Open(AT_FDCWD, name, flags, 0); }
EXPORTED int __open64_2(const char* name, int flags) { return Open(AT_FDCWD, name, flags, 0); }
EXPORTED int __openat_2(int folder, const char* name, int flags) {
    return Open(folder, name, flags, 0);
}
EXPORTED int __openat64_2(int folder, const char* name, int flags) {
    return Open(folder, name, flags, 0);
}

EXPORTED int creat(const char* name, mode_t mode) {
    return Open(AT_FDCWD, name, O_WRONLY | O_CREAT | O_TRUNC, mode);
}

EXPORTED FILE* fopen(const char* name, const char* how) {
    NEXT(fopen);
    return BeforeOpen(AT_FDCWD, name).error != 0 ? nullptr : next(name, how);
}

EXPORTED FILE* fopen64(const char* name, const char* how) {
    NEXT(fopen64);
    return BeforeOpen(AT_FDCWD, name).error != 0 ? nullptr : next(name, how);
}

EXPORTED ssize_t write(int fd, const void* data, size_t size) {
    NEXT(write);
    const Fate fate = BeforeUse("write", fd);
    return fate.error != 0 ? -1 : next(fd, data, std::min(size, fate.most));
}

EXPORTED ssize_t pwrite(int fd, const void* data, size_t size, off_t at) {
    NEXT(pwrite);
    const Fate fate = BeforeUse("write", fd);
    return fate.error != 0 ? -1 : next(fd, data, std::min(size, fate.most), at);
}

EXPORTED ssize_t pwrite64(int fd, const void* data, size_t size, off64_t at) {
    NEXT(pwrite64);
    const Fate fate = BeforeUse("write", fd);
    return fate.error != 0 ? -1 : next(fd, data, std::min(size, fate.most), at);
}

// Cut short to the first piece, which is short enough for most.
EXPORTED ssize_t writev(int fd, const iovec* pieces, int count) {
    NEXT(writev);
    const Fate fate = BeforeUse("write", fd);
    if (fate.error != 0) return -1;
    if (fate.most == SIZE_MAX || count < 1) return next(fd, pieces, count);
    const iovec first{pieces[0].iov_base, std::min(pieces[0].iov_len, fate.most)};
    return next(fd, &first, 1);
}

EXPORTED int fsync(int fd) {
    NEXT(fsync);
    return BeforeUse("fsync", fd).error != 0 ? -1 : next(fd);
}

EXPORTED int fdatasync(int fd) {
    NEXT(fdatasync);
    return BeforeUse("fsync", fd).error != 0 ? -1 : next(fd);
}

EXPORTED int close(int fd) {
    NEXT(close);
    const Fate fate = BeforeUse("close", fd);
    const int result = next(fd);
    if (fate.error == 0) return result;
    errno = fate.error;
    return -1;
}

EXPORTED int fclose(FILE* file) {
    NEXT(fclose);
    const Fate fate = BeforeUse("close", fileno(file));
    const int result = next(file);
    if (fate.error == 0) return result;
    errno = fate.error;
    return EOF;
}

EXPORTED int rename(const char* from, const char* to) noexcept {
    NEXT(rename);
    return BeforeRename(AT_FDCWD, from, AT_FDCWD, to).error != 0 ? -1 : next(from, to);
}

EXPORTED int renameat(int fromFolder, const char* from, int toFolder, const char* to) noexcept {
    NEXT(renameat);
    return BeforeRename(fromFolder, from, toFolder, to).error != 0
               ? -1
               : next(fromFolder, from, toFolder, to);
}

EXPORTED int renameat2(int fromFolder, const char* from, int toFolder, const char* to,
                       unsigned flags) noexcept {
    NEXT(renameat2);
    return BeforeRename(fromFolder, from, toFolder, to).error != 0
               ? -1
               : next(fromFolder, from, toFolder, to, flags);
}

EXPORTED int unlink(const char* name) noexcept {
    NEXT(unlink);
    return BeforeUnlink(AT_FDCWD, name).error != 0 ? -1 : next(name);
}

EXPORTED int unlinkat(int folder, const char* name, int flags) noexcept {
    NEXT(unlinkat);
    return BeforeUnlink(folder, name).error != 0 ? -1 : next(folder, name, flags);
}

EXPORTED int remove(const char* name) noexcept {
    NEXT(remove);
    return BeforeUnlink(AT_FDCWD, name).error != 0 ? -1 : next(name);
}

EXPORTED int rmdir(const char* name) noexcept {
    NEXT(rmdir);
    return BeforeUnlink(AT_FDCWD, name).error != 0 ? -1 : next(name);
}

}  // extern "C"
