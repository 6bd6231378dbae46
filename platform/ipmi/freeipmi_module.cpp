// SPDX-License-Identifier: Apache-2.0
#include <freeipmi/freeipmi.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
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

}  // namespace

struct varnex_ipmi_session {
    Context context;
    bool lost = false;  // no further word reaches the BMC
};

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

int Keep(Context context, varnex_ipmi_session** session, varnex_ipmi_error* error) {
    *session = new (std::nothrow) varnex_ipmi_session{std::move(context)};
    if (*session != nullptr) return VARNEX_IPMI_DONE;
    Explain(error, "out of memory");
    return VARNEX_IPMI_FAILED;
}

int KnowsCipherSuite(std::uint16_t suite) {
    return suite <= std::numeric_limits<std::uint8_t>::max() &&
           IPMI_CIPHER_SUITE_ID_SUPPORTED(int{suite});
}

int OpenLan(const varnex_ipmi_lan* lan, varnex_ipmi_session** session, varnex_ipmi_error* error) {
    *session = nullptr;
    Context context = MakeContext(error);
    if (!context) return VARNEX_IPMI_FAILED;
    if (ipmi_ctx_open_outofband_2_0(context.get(), lan->endpoint, lan->user, lan->password, nullptr,
                                    0, IPMI_PRIVILEGE_LEVEL_ADMIN, lan->cipher_suite,
                                    lan->session_timeout, lan->retransmission_timeout, kWorkarounds,
                                    IPMI_FLAGS_DEFAULT) < 0) {
        return Failure(context, error);
    }
    return Keep(std::move(context), session, error);
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
    return Keep(std::move(context), session, error);
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

    std::array<std::uint8_t, kLongestRequest> received;
    const int length = ipmi_cmd_raw(session->context.get(), 0, netfn, request.data(),
                                    static_cast<unsigned int>(dataSize + 1), received.data(),
                                    static_cast<unsigned int>(received.size()));
    if (length < 0) {
        const int result = Failure(session->context, error);
        session->lost = result == VARNEX_IPMI_NO_ANSWER;
        return result;
    }
    if (length < 2 || static_cast<std::size_t>(length) - 1 > capacity) {
        Explain(error, "the answer is shorter or longer than an answer can be");
        return VARNEX_IPMI_FAILED;
    }
    *answerSize = static_cast<std::size_t>(length) - 1;
    std::memcpy(answer, received.data() + 1, *answerSize);
    return VARNEX_IPMI_DONE;
}

void Close(varnex_ipmi_session* session) {
    if (!session->lost) ipmi_ctx_close(session->context.get());
    delete session;
}

constexpr varnex_ipmi_module kModule = {
    VARNEX_IPMI_MODULE_VERSION, KnowsCipherSuite, OpenLan, OpenDevice, Send, Close};

}  // namespace

extern "C" const varnex_ipmi_module* varnex_ipmi_module_get(void) { return &kModule; }
