// SPDX-License-Identifier: Apache-2.0
//
// A stand-in for the kernel's IPMI device, for programs that open /dev/ipmi0: linked or preloaded,
// it takes the C library's place for that one file. What EMULATED_KCS says decides:
//
//   a name          the local socket of an emulated BMC (its ready line: ipmi.kcs)
//   errno:NUMBER    opening the device fails with that error
//   empty, unset    nothing is changed
//
// Every other path below /dev/ipmi does not exist then.
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/ipmi.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int kMostFiles = 1024;
constexpr char kDevice[] = "/dev/ipmi0";
constexpr char kDevicesPrefix[] = "/dev/ipmi";
constexpr char kErrorPrefix[] = "errno:";

std::array<std::atomic<bool>, kMostFiles> devices;   // by descriptor
std::array<std::atomic<long>, kMostFiles> messages;  // the number that the answer has to carry

template <typename Function>
Function Real(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

bool IsDevice(int file) {
    return file >= 0 && file < kMostFiles && devices[static_cast<std::size_t>(file)];
}

int Fail(int error) {
    errno = error;
    return -1;
}

int OpenDevice(const std::string& path, const std::string& bmc) {
    if (path != kDevice) return Fail(ENOENT);
    if (bmc.compare(0, sizeof kErrorPrefix - 1, kErrorPrefix) == 0) {
        return Fail(std::stoi(bmc.substr(sizeof kErrorPrefix - 1)));
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (bmc.size() + 1 > sizeof address.sun_path) return Fail(ENAMETOOLONG);
    std::memcpy(address.sun_path + 1, bmc.data(), bmc.size());  // behind a NUL: an abstract name
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + bmc.size());
    const int file = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (file < 0 || file >= kMostFiles) return Fail(EMFILE);
    if (connect(file, reinterpret_cast<const sockaddr*>(&address), length) != 0) {
        close(file);
        return Fail(ENXIO);
    }
    devices[static_cast<std::size_t>(file)] = true;
    return file;
}

bool ReadAll(int file, std::uint8_t* bytes, std::size_t size) {
    return recv(file, bytes, size, MSG_WAITALL) == static_cast<ssize_t>(size);
}

int SendRequest(int file, const ipmi_req& request) {
    const std::size_t size = 2u + request.msg.data_len;
    std::vector<std::uint8_t> frame = {static_cast<std::uint8_t>(size >> 8),
                                       static_cast<std::uint8_t>(size & 0xFF), request.msg.netfn,
                                       request.msg.cmd};
    frame.insert(frame.end(), request.msg.data, request.msg.data + request.msg.data_len);
    messages[static_cast<std::size_t>(file)] = request.msgid;
    const ssize_t sent = send(file, frame.data(), frame.size(), MSG_NOSIGNAL);
    return sent == static_cast<ssize_t>(frame.size()) ? 0 : Fail(EIO);
}

int ReceiveAnswer(int file, ipmi_recv& received) {
    std::uint8_t length[2];
    if (!ReadAll(file, length, sizeof length)) return Fail(EAGAIN);
    std::vector<std::uint8_t> answer(static_cast<std::size_t>(length[0] << 8 | length[1]));
    if (!ReadAll(file, answer.data(), answer.size())) return Fail(EIO);
    if (answer.size() > received.msg.data_len) return Fail(EMSGSIZE);
    std::memcpy(received.msg.data, answer.data(), answer.size());
    received.msg.data_len = static_cast<unsigned short>(answer.size());
    received.recv_type = IPMI_RESPONSE_RECV_TYPE;
    received.msgid = messages[static_cast<std::size_t>(file)];
    return 0;
}

int OpenAny(const char* name, const char* path, int flags, mode_t mode) {
    const char* bmc = std::getenv("EMULATED_KCS");
    const bool ours = bmc != nullptr && *bmc != '\0' &&
                      std::strncmp(path, kDevicesPrefix, sizeof kDevicesPrefix - 1) == 0;
    if (ours) return OpenDevice(path, bmc);
    return Real<int (*)(const char*, int, ...)>(name)(path, flags, mode);
}

mode_t ModeOf(int flags, va_list arguments) {
    const bool given = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return given ? va_arg(arguments, mode_t) : 0;
}

}  // namespace

#pragma GCC visibility push(default)

extern "C" int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return OpenAny("open", path, flags, mode);
}

extern "C" int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return OpenAny("open64", path, flags, mode);
}

extern "C" int close(int file) {
    if (IsDevice(file)) devices[static_cast<std::size_t>(file)] = false;
    return Real<int (*)(int)>("close")(file);
}

extern "C" int ioctl(int file, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    if (!IsDevice(file)) {
        return Real<int (*)(int, unsigned long, ...)>("ioctl")(file, request, argument);
    }
    switch (request) {
        case IPMICTL_SEND_COMMAND:
            return SendRequest(file, *static_cast<const ipmi_req*>(argument));
        case IPMICTL_RECEIVE_MSG:
        case IPMICTL_RECEIVE_MSG_TRUNC:
            return ReceiveAnswer(file, *static_cast<ipmi_recv*>(argument));
        default:
            return 0;  // addresses, events: nothing that a request depends on
    }
}

#pragma GCC visibility pop
