// SPDX-License-Identifier: Apache-2.0
#include "SshSession.h"

#include <curl/curl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <ostream>
#include <utility>
#include <vector>

#include "KnownHosts.h"
#include "Log.h"
#include "SftpFailure.h"
#include "SshAlgorithms.h"
#include "shared/Base64.h"

namespace {

constexpr char kLogSource[] = "platform/src/SshSession";
constexpr int kMoment = 200;     // milliseconds
constexpr int kMostRounds = 10;  // of questions
constexpr int kMostQuestions = 10;

SftpFailure Lost(ssh_session session) {
    const std::string text = ssh_get_error(session);
    return {CURLE_SSH, "Error in the SSH layer" + (text.empty() ? "" : ": " + text), true};
}

std::string MethodNames(unsigned methods) {
    const struct {
        unsigned method;
        const char* name;
    } all[] = {{SSH_AUTH_METHOD_PASSWORD, "password"},
               {SSH_AUTH_METHOD_INTERACTIVE, "keyboard-interactive"},
               {SSH_AUTH_METHOD_PUBLICKEY, "publickey"},
               {SSH_AUTH_METHOD_HOSTBASED, "hostbased"},
               {SSH_AUTH_METHOD_GSSAPI_MIC, "gssapi-with-mic"}};
    std::string names;
    for (const auto& each : all) {
        if ((methods & each.method) != 0)
            names += (names.empty() ? "" : ", ") + std::string(each.name);
    }
    return names.empty() ? "nothing" : names;
}

}  // namespace

// libssh closes a socket that it was given when the connection fails, and else leaves it open: it
// is closed here where it is still the same.
void SshSession::Free::operator()(ssh_session session) const noexcept {
    const int socket = ssh_get_fd(session);
    struct stat before {};
    struct stat after {};
    const bool isOpen = socket >= 0 && ::fstat(socket, &before) == 0;
    if (ssh_is_connected(session)) ssh_disconnect(session);
    ssh_free(session);
    if (isOpen && ::fstat(socket, &after) == 0 && before.st_dev == after.st_dev &&
        before.st_ino == after.st_ino) {
        ::close(socket);
    }
}

SshSession::SshSession(const Uri& uri, SftpPatience& patience) {
    Connect(uri, patience);
    ReadHostKey();
    CheckHostKey(uri);
    NameWeakAlgorithms(uri);
    LogIn(uri, patience);
    m_event.reset(ssh_event_new());
    if (!m_event || ssh_event_add_session(m_event.get(), Get()) != SSH_OK) throw std::bad_alloc();
    patience.LoggedIn();
}

SshSession::~SshSession() {
    if (m_event) ssh_event_remove_session(m_event.get(), Get());
}

void SshSession::Abandon() {
    // The connection belongs to the process that made it: this one lets go of its descriptor alone.
    ::close(ssh_get_fd(Get()));
    (void)m_event.release();
    (void)m_session.release();
    (void)m_tunnel.release();
}

void SshSession::Wait(SftpPatience& patience) {
    patience.Received(std::exchange(m_received, 0));
    patience.Check();
    if (ssh_event_dopoll(m_event.get(), kMoment) == SSH_ERROR || !ssh_is_connected(Get()) ||
        (ssh_get_status(Get()) & (SSH_CLOSED | SSH_CLOSED_ERROR)) != 0) {
        throw Lost(Get());
    }
}

// A host whose only key is RSA, and whose software knows SHA-1 alone, is asked a second time: what
// was agreed upon cannot be asked for afterwards, and has to be named.
void SshSession::Connect(const Uri& uri, SftpPatience& patience) {
    if (TryToConnect(uri, false, patience)) return;
    const SftpFailure first = Lost(Get());
    m_withSha1 = true;
    if (ssh_get_serverbanner(Get()) == nullptr || !TryToConnect(uri, true, patience)) {
        throw SftpFailure{CURLE_SSH, first.text, true};
    }
}

bool SshSession::TryToConnect(const Uri& uri, bool withSha1, SftpPatience& patience) {
    m_session.reset();
    m_tunnel = std::make_unique<SshTunnel>(uri, [&patience] {
        try {
            patience.Check();
            return true;
        } catch (const SftpFailure&) {
            return false;
        }
    });
    m_session.reset(ssh_new());
    if (!m_session) throw std::bad_alloc();
    SetOptions(uri, withSha1, m_tunnel->TakeSocket());
    return Repeat([this] { return ssh_connect(Get()); }, patience) == SSH_OK;
}

void SshSession::SetOptions(const Uri& uri, bool withSha1, int socket) {
    const KnownHosts hosts(KnownHosts::DefaultPath());
    const bool no = false;
    const std::vector<std::pair<ssh_options_e, std::string>> texts = {
        {SSH_OPTIONS_HOST, uri.host()},
        {SSH_OPTIONS_SSH_DIR, "/dev/null"},
        {SSH_OPTIONS_KNOWNHOSTS, "/dev/null"},  // ours judge
        {SSH_OPTIONS_GLOBAL_KNOWNHOSTS, "/dev/null"},
        {SSH_OPTIONS_KEY_EXCHANGE, ssh_algorithms::KeyExchanges()},
        {SSH_OPTIONS_CIPHERS_C_S, ssh_algorithms::Ciphers()},
        {SSH_OPTIONS_CIPHERS_S_C, ssh_algorithms::Ciphers()},
        {SSH_OPTIONS_HMAC_C_S, ssh_algorithms::Macs()},
        {SSH_OPTIONS_HMAC_S_C, ssh_algorithms::Macs()},
        {SSH_OPTIONS_HOSTKEYS,
         ssh_algorithms::HostKeys(hosts.Types(KnownHosts::Name(uri.host(), uri.port())), withSha1)},
    };
    int failures = ssh_options_set(Get(), SSH_OPTIONS_FD, &socket);
    failures += ssh_options_set(Get(), SSH_OPTIONS_PROCESS_CONFIG, &no);
    for (const auto& option : texts) {
        failures += ssh_options_set(Get(), option.first, option.second.c_str());
    }
    if (!uri.user().empty())
        failures += ssh_options_set(Get(), SSH_OPTIONS_USER, uri.user().c_str());
    ssh_set_blocking(Get(), 0);
    if (failures != 0) throw Lost(Get());
}

void SshSession::ReadHostKey() {
    ssh_key key = nullptr;
    char* base64 = nullptr;
    if (ssh_get_server_publickey(Get(), &key) == SSH_OK &&
        ssh_pki_export_pubkey_base64(key, &base64) == SSH_OK) {
        m_hostKey = shared::FromBase64(base64);
    }
    ssh_string_free_char(base64);
    ssh_key_free(key);
    if (m_hostKey.empty()) throw Lost(Get());
}

void SshSession::CheckHostKey(const Uri& uri) const {
    HostKeyCheck check(uri.host(), uri.port());
    if (!check.Accepts(HostKey(m_hostKey))) {
        throw SftpFailure{CURLE_PEER_FAILED_VERIFICATION, check.Refusal(), true};
    }
}

void SshSession::NameWeakAlgorithms(const Uri& uri) const {
    std::string weak;
    const bool rsa = HostKey(m_hostKey).Type() == "ssh-rsa";
    for (const char* algorithm :
         {ssh_get_kex_algo(Get()), ssh_get_cipher_in(Get()), ssh_get_hmac_in(Get()),
          m_withSha1 && rsa ? "ssh-rsa" : nullptr}) {
        if (algorithm == nullptr || !ssh_algorithms::IsWeak(algorithm)) continue;
        weak += (weak.empty() ? "" : ", ") + std::string(algorithm);
    }
    if (weak.empty()) return;
    Log(2, kLogSource, __LINE__).Stream()
        << "The SSH server of " << uri.host() << " offers nothing better than " << weak
        << ", which is weak.";
}

void SshSession::LogIn(const Uri& uri, SftpPatience& patience) {
    // libssh would take an empty name for that of this process's user.
    if (uri.user().empty()) {
        throw SftpFailure{CURLE_LOGIN_DENIED, "Authentication failure: there is no user name",
                          true};
    }
    int result = Repeat([this] { return ssh_userauth_none(Get(), nullptr); }, patience);
    const unsigned offered = Offered();
    if (result != SSH_AUTH_SUCCESS && (offered & SSH_AUTH_METHOD_PASSWORD) != 0) {
        result = ByPassword(uri, patience);
    }
    const bool mayAsk = result != SSH_AUTH_SUCCESS && result != SSH_AUTH_ERROR &&
                        (Offered() & SSH_AUTH_METHOD_INTERACTIVE) != 0;
    if (mayAsk) result = ByQuestions(uri, patience);
    if (result == SSH_AUTH_SUCCESS) return;
    if (!ssh_is_connected(Get()) && result == SSH_AUTH_ERROR && offered == 0) throw Lost(Get());
    throw SftpFailure{CURLE_LOGIN_DENIED, Refusal(offered), true};
}

unsigned SshSession::Offered() const {
    return static_cast<unsigned>(ssh_userauth_list(Get(), nullptr));
}

int SshSession::ByPassword(const Uri& uri, SftpPatience& patience) {
    return Repeat([&] { return ssh_userauth_password(Get(), nullptr, uri.password().c_str()); },
                  patience);
}

int SshSession::ByQuestions(const Uri& uri, SftpPatience& patience) {
    int result = SSH_AUTH_ERROR;
    for (int round = 0; round < kMostRounds; ++round) {
        result = Repeat([this] { return ssh_userauth_kbdint(Get(), nullptr, nullptr); }, patience);
        if (result != SSH_AUTH_INFO) return result;
        Answer(uri.password());
    }
    return SSH_AUTH_DENIED;
}

// What may be seen while it is typed is no password.
void SshSession::Answer(const std::string& password) {
    const int questions = std::min(ssh_userauth_kbdint_getnprompts(Get()), kMostQuestions);
    for (int i = 0; i < questions; ++i) {
        char echo = 0;
        const auto number = static_cast<unsigned>(i);
        ssh_userauth_kbdint_getprompt(Get(), number, &echo);
        ssh_userauth_kbdint_setanswer(Get(), number, echo != 0 ? "" : password.c_str());
    }
}

std::string SshSession::Refusal(unsigned offered) {
    const bool takes = (offered & (SSH_AUTH_METHOD_PASSWORD | SSH_AUTH_METHOD_INTERACTIVE)) != 0;
    return "Authentication failure; the server offers " + MethodNames(offered) +
           (takes ? "" : ", and no login by password");
}

void SshSession::WaitForBytes(SftpPatience& patience) const {
    patience.Check();
    const bool writes = (ssh_get_poll_flags(Get()) & SSH_WRITE_PENDING) != 0;
    pollfd ready{ssh_get_fd(Get()), static_cast<short>(POLLIN | (writes ? POLLOUT : 0)), 0};
    ::poll(&ready, 1, kMoment);
}

// libssh's "again", in whatever call, is the same number for all.
template <class Call>
int SshSession::Repeat(Call call, SftpPatience& patience) {
    static_assert(static_cast<int>(SSH_AUTH_AGAIN) != static_cast<int>(SSH_AGAIN));
    while (true) {
        const int result = call();
        if (result != SSH_AGAIN && result != SSH_AUTH_AGAIN) return result;
        WaitForBytes(patience);
    }
}
