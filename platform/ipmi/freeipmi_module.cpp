// SPDX-License-Identifier: Apache-2.0
#include <dirent.h>
#include <fcntl.h>
#include <freeipmi/freeipmi.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <set>
#include <utility>

#include "module.h"

namespace {

struct DestroyContext {
    void operator()(ipmi_ctx* context) const noexcept { ipmi_ctx_destroy(context); }
};
using Context = std::unique_ptr<ipmi_ctx, DestroyContext>;

// A request is one command byte and its data; an answer begins with the command and the completion
// code. FreeIPMI takes lengths as unsigned int.
constexpr std::size_t kLongestRequest = 1024;

// Some BMCs refuse the highest privilege in the open-session request, with an error that blames the
// user's privilege; asked for "the highest that the suite allows" they agree.
constexpr unsigned int kWorkarounds = IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_OPEN_SESSION_PRIVILEGE;

// For requests whose answers are crossed by others.
constexpr int kTriesWhenDisturbed = 8;

// The library opens its socket without the close-on-exec flag and does not hand it out. What is new
// once it is done, and looks like it, is marked: bound to every address, connected to none.
class OpenSocketsBefore {
public:
    OpenSocketsBefore() : m_before(All()) {}

    void CloseNewOnesOnExec() const {
        for (const int descriptor : All()) {
            if (m_before.count(descriptor) == 0 && IsTheLibrarys(descriptor)) {
                (void)fcntl(descriptor, F_SETFD, FD_CLOEXEC);
            }
        }
    }

private:
    static std::set<int> All() {
        std::set<int> open;
        const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir("/proc/self/fd"), closedir);
        if (!folder) return open;
        while (const dirent* entry = readdir(folder.get()))
            open.insert(static_cast<int>(std::strtol(entry->d_name, nullptr, 10)));
        open.erase(dirfd(folder.get()));
        return open;
    }

    static bool IsTheLibrarys(int descriptor) {
        int type = 0;
        socklen_t length = sizeof type;
        if (getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &length) != 0) return false;
        sockaddr_storage address{};
        length = sizeof address;
        const bool connected =
            getpeername(descriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0;
        return type == SOCK_DGRAM && !connected && IsBoundToEveryAddress(descriptor);
    }

    static bool IsBoundToEveryAddress(int descriptor) {
        sockaddr_storage address{};
        socklen_t length = sizeof address;
        if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            return false;
        }
        if (address.ss_family == AF_INET) {
            const auto& four = reinterpret_cast<const sockaddr_in&>(address);
            return four.sin_addr.s_addr == htonl(INADDR_ANY) && four.sin_port != 0;
        }
        const auto& six = reinterpret_cast<const sockaddr_in6&>(address);
        return address.ss_family == AF_INET6 && IN6_IS_ADDR_UNSPECIFIED(&six.sin6_addr) &&
               six.sin6_port != 0;
    }

    std::set<int> m_before;
};

}  // namespace

struct varnex_ipmi_session {
    Context context;
    bool lan = false;
    bool lost = false;                       // no further word reaches the BMC
    std::optional<std::uint8_t> lastNumber;  // of the newest request that was answered
};

// The request that the thread has sent, for FreeIPMI's look at an answer.
namespace {

constexpr unsigned kNumbers = 64;  // requests are counted modulo this

struct Awaited {
    std::uint8_t function = 0;          // of its answer
    std::optional<std::uint8_t> first;  // number of the first copy, where it is known
    std::optional<std::uint8_t> newest;
};

thread_local Awaited* t_awaited = nullptr;

class AwaitedByThisThread {
public:
    explicit AwaitedByThisThread(Awaited& awaited) { t_awaited = &awaited; }
    ~AwaitedByThisThread() { t_awaited = nullptr; }
    AwaitedByThisThread(const AwaitedByThisThread&) = delete;
    AwaitedByThisThread& operator=(const AwaitedByThisThread&) = delete;
};

std::optional<unsigned> Member(fiid_obj_t header, const char* name) {
    std::uint64_t value = 0;
    if (fiid_obj_get(header, name, &value) < 0) return std::nullopt;
    return static_cast<unsigned>(value);
}

unsigned Distance(unsigned from, unsigned to) { return (to - from) % kNumbers; }

}  // namespace

// Takes the place of FreeIPMI's own function, which finds this one first because the module comes
// before it. That one knows the number of the newest copy alone, so that a BMC that needs longer
// than the next copy would never be heard; and nothing looks at the network function. 1: the answer
// is taken, 0: it is passed over.
extern "C" __attribute__((visibility("default"))) int ipmi_lan_check_rq_seq(fiid_obj_t header,
                                                                            std::uint8_t newest) {
    const std::optional<unsigned> number = Member(header, "rq_seq");
    if (!number) {
        errno = EINVAL;
        return -1;
    }
    if (t_awaited == nullptr) return *number == newest ? 1 : 0;
    t_awaited->newest = newest;
    if (t_awaited->function != 0 && Member(header, "net_fn") != t_awaited->function) return 0;
    const unsigned first = t_awaited->first.value_or(newest);
    return Distance(first, *number) <= Distance(first, newest) ? 1 : 0;
}

namespace {

void Explain(varnex_ipmi_error* error, const char* text) {
    (void)std::snprintf(error->text, sizeof error->text, "%s", text);
}

// libgcrypt underneath has to be set up once, before a second thread uses it.
bool LibraryReady() {
    static std::once_flag once;
    static bool ready = false;
    std::call_once(once, [] { ready = ipmi_rmcpplus_init() == 0; });
    return ready;
}

int ResultOf(int errnum) {
    switch (errnum) {
        case IPMI_ERR_PASSWORD_INVALID:
        case IPMI_ERR_PASSWORD_VERIFICATION_TIMEOUT:
            return VARNEX_IPMI_WRONG_PASSWORD;
        case IPMI_ERR_USERNAME_INVALID:
            return VARNEX_IPMI_UNKNOWN_USER;
        case IPMI_ERR_CIPHER_SUITE_ID_UNAVAILABLE:
            return VARNEX_IPMI_NO_CIPHER_SUITE;
        case IPMI_ERR_PRIVILEGE_LEVEL_INSUFFICIENT:
        case IPMI_ERR_PRIVILEGE_LEVEL_CANNOT_BE_OBTAINED:
            return VARNEX_IPMI_NO_PRIVILEGE;
        case IPMI_ERR_CONNECTION_TIMEOUT:
        case IPMI_ERR_SESSION_TIMEOUT:
        case IPMI_ERR_DRIVER_TIMEOUT:
        case IPMI_ERR_MESSAGE_TIMEOUT:
            return VARNEX_IPMI_NO_ANSWER;
        case IPMI_ERR_BAD_RMCPPLUS_STATUS_CODE:
            return VARNEX_IPMI_REFUSED;
        case IPMI_ERR_DEVICE_NOT_FOUND:
        case IPMI_ERR_DEVICE_NOT_SUPPORTED:
            return VARNEX_IPMI_NO_DEVICE;
        case IPMI_ERR_PERMISSION:
            return VARNEX_IPMI_NO_PERMISSION;
        case IPMI_ERR_HOSTNAME_INVALID:
        case IPMI_ERR_PARAMETERS:
            return VARNEX_IPMI_BAD_ARGUMENT;
        default:
            return VARNEX_IPMI_FAILED;
    }
}

int Failure(const Context& context, varnex_ipmi_error* error) {
    Explain(error, ipmi_ctx_errormsg(context.get()));
    return ResultOf(ipmi_ctx_errnum(context.get()));
}

Context MakeContext(varnex_ipmi_error* error) {
    if (!LibraryReady()) {
        Explain(error, "the cryptography library cannot be set up");
        return nullptr;
    }
    Context context(ipmi_ctx_create());
    if (!context) Explain(error, "out of memory");
    return context;
}

int Keep(varnex_ipmi_session&& opened, varnex_ipmi_session** session, varnex_ipmi_error* error) {
    *session = new (std::nothrow) varnex_ipmi_session(std::move(opened));
    if (*session != nullptr) return VARNEX_IPMI_DONE;
    Explain(error, "out of memory");
    return VARNEX_IPMI_FAILED;
}

int KnowsCipherSuite(std::uint16_t suite, std::uint8_t algorithms[3]) {
    return suite <= std::numeric_limits<std::uint8_t>::max() &&
           IPMI_CIPHER_SUITE_ID_SUPPORTED(int{suite}) &&
           ipmi_cipher_suite_id_to_algorithms(static_cast<std::uint8_t>(suite), &algorithms[0],
                                              &algorithms[1], &algorithms[2]) == 0;
}

// A datagram that belongs to an earlier step, a second copy for one, makes the library give up the
// request with this "error".
bool IsDisturbed(const Context& context) {
    return ipmi_ctx_errnum(context.get()) == IPMI_ERR_SUCCESS;
}

int Disturbed(varnex_ipmi_error* error) {
    Explain(error, "answers that belong to other requests keep coming");
    return VARNEX_IPMI_DISTURBED;
}

// The library has no word for some status codes that refuse a session, not even that they do.
int SetUpFailure(const Context& context, varnex_ipmi_error* error) {
    const int result = Failure(context, error);
    return ipmi_ctx_errnum(context.get()) == IPMI_ERR_IPMI_ERROR ? VARNEX_IPMI_REFUSED : result;
}

int OpenLan(const varnex_ipmi_lan* lan, varnex_ipmi_session** session, varnex_ipmi_error* error) {
    *session = nullptr;
    Context context = MakeContext(error);
    if (!context) return VARNEX_IPMI_FAILED;
    Awaited awaited;
    const AwaitedByThisThread forNow(awaited);
    const OpenSocketsBefore before;
    if (ipmi_ctx_open_outofband_2_0(context.get(), lan->endpoint, lan->user, lan->password, nullptr,
                                    0, IPMI_PRIVILEGE_LEVEL_ADMIN, lan->cipher_suite,
                                    lan->session_timeout, lan->retransmission_timeout, kWorkarounds,
                                    IPMI_FLAGS_DEFAULT) < 0) {
        return IsDisturbed(context) ? Disturbed(error) : SetUpFailure(context, error);
    }
    before.CloseNewOnesOnExec();
    return Keep({std::move(context), true, false, awaited.newest}, session, error);
}

int OpenDevice(const char* device, varnex_ipmi_session** session, varnex_ipmi_error* error) {
    *session = nullptr;
    Context context = MakeContext(error);
    if (!context) return VARNEX_IPMI_FAILED;
    // The kernel's driver: it finds the interface by itself, so there is no address to give.
    if (ipmi_ctx_open_inband(context.get(), IPMI_DEVICE_OPENIPMI, 0, 0, 0, device,
                             IPMI_WORKAROUND_FLAGS_DEFAULT, IPMI_FLAGS_DEFAULT) < 0) {
        return Failure(context, error);
    }
    return Keep({std::move(context), false, false, {}}, session, error);
}

int Send(varnex_ipmi_session* session, std::uint8_t netfn, std::uint8_t command,
         const std::uint8_t* data, std::size_t dataSize, std::uint8_t* answer, std::size_t capacity,
         std::size_t* answerSize, varnex_ipmi_error* error) {
    std::array<std::uint8_t, kLongestRequest> request;
    if (dataSize >= request.size()) {
        Explain(error, "the request is too long");
        return VARNEX_IPMI_BAD_ARGUMENT;
    }
    request[0] = command;
    if (dataSize > 0) std::memcpy(request.data() + 1, data, dataSize);

    Awaited awaited;
    awaited.function = netfn | 1U;
    if (session->lastNumber) awaited.first = (*session->lastNumber + 1U) % kNumbers;
    const AwaitedByThisThread forNow(awaited);
    std::array<std::uint8_t, kLongestRequest> received;
    for (int tries = 0; tries < kTriesWhenDisturbed; ++tries) {
        const int length = ipmi_cmd_raw(session->context.get(), 0, netfn, request.data(),
                                        static_cast<unsigned int>(dataSize + 1), received.data(),
                                        static_cast<unsigned int>(received.size()));
        session->lastNumber = awaited.newest;
        if (length < 0 && !IsDisturbed(session->context)) {
            const int result = Failure(session->context, error);
            session->lost = result == VARNEX_IPMI_NO_ANSWER;
            return result;
        }
        // In band the kernel has looked for the answer that belongs to the request.
        if (length < 1 || (session->lan && received[0] != command)) continue;
        if (length < 2 || static_cast<std::size_t>(length) - 1 > capacity) {
            Explain(error, "the answer is shorter or longer than an answer can be");
            return VARNEX_IPMI_FAILED;
        }
        *answerSize = static_cast<std::size_t>(length) - 1;
        std::memcpy(answer, received.data() + 1, *answerSize);
        return VARNEX_IPMI_DONE;
    }
    (void)Disturbed(error);
    return VARNEX_IPMI_FAILED;
}

void Close(varnex_ipmi_session* session) {
    if (!session->lost) ipmi_ctx_close(session->context.get());
    delete session;
}

#define VARNEX_TEXT(word) VARNEX_TEXT_OF(word)
#define VARNEX_TEXT_OF(word) #word

// FreeIPMI tells its version to who compiles with it, and to nobody else.
constexpr varnex_ipmi_module kModule = {VARNEX_IPMI_MODULE_VERSION,
                                        "FreeIPMI " VARNEX_TEXT(FREEIPMI_PACKAGE_VERSION),
                                        "GPL-3.0-or-later",
                                        KnowsCipherSuite,
                                        OpenLan,
                                        OpenDevice,
                                        Send,
                                        Close};

}  // namespace

extern "C" const varnex_ipmi_module* varnex_ipmi_module_get(void) { return &kModule; }
