// SPDX-License-Identifier: Apache-2.0
#include "sftp_client.h"

#include <curl/curl.h>

#include <memory>

#include "SftpFailure.h"
#include "SftpListing.h"
#include "SftpPump.h"
#include "SftpSession.h"
#include "SigPipeGuard.h"
#include "shared/Percent.h"

namespace {

// As the server names it: an address writes some bytes as %XX.
std::string PathOf(const Uri& uri) {
    std::string path = uri.path().empty() || uri.path()[0] != '/' ? "/" : "";
    path += shared::PercentDecoded(uri.path());
    if (path.find('\0') != std::string::npos) {
        throw SftpFailure{CURLE_URL_MALFORMAT, "A path cannot hold a NUL byte"};
    }
    return path;
}

class Exchange {
public:
    Exchange(const Uri& uri, std::function<bool()> goOn) : m_uri(uri), m_goOn(std::move(goOn)) {}

    // `work` is done with the held session or, where that turns out to be lost before `begun`, with
    // a new one.
    template <class Work, class Begun>
    void Run(const Work& work, const Begun& begun) {
        const SigPipeGuard guard;
        if (std::unique_ptr<SftpSession> held = held_session::Take(m_uri)) {
            try {
                held->Ssh().CheckHostKey(m_uri);
                RunWith(std::move(held), work);
                return;
            } catch (const SftpFailure& failure) {
                if (!failure.lost || failure.number != CURLE_SSH || begun()) throw;
            }
        }
        SftpPatience patience(m_goOn);
        RunWith(std::make_unique<SftpSession>(m_uri, patience), work);
    }

private:
    template <class Work>
    void RunWith(std::unique_ptr<SftpSession> session, const Work& work) {
        SftpPatience patience(m_goOn);
        patience.LoggedIn();
        try {
            work(*session, patience);
        } catch (const SftpFailure& failure) {
            if (!failure.lost) held_session::Keep(m_uri, std::move(session));
            throw;
        }
        held_session::Keep(m_uri, std::move(session));
    }

    const Uri& m_uri;
    std::function<bool()> m_goOn;
};

}  // namespace

void sftp_client::List(const Uri& uri, std::list<std::string>& names) {
    const std::string path = PathOf(uri);
    Exchange(uri, [] { return true; })
        .Run([&](SftpSession& session,
                 SftpPatience& patience) { ListFolder(session, path, patience, names); },
             [] { return false; });
}

void sftp_client::Download(const Uri& uri,
                           const std::function<bool(const char*, std::size_t)>& take,
                           const std::function<bool(std::uint64_t expected)>& goOn) {
    const std::string path = PathOf(uri);
    std::uint64_t expected = 0;
    bool begun = false;
    const auto work = [&](SftpSession& session, SftpPatience& patience) {
        SftpPump pump(session, path, patience, [&](const char* data, std::size_t size) {
            begun = true;
            return take(data, size);
        });
        expected = pump.Look();
        pump.Run();
    };
    Exchange(uri, [&] { return goOn(expected); }).Run(work, [&] { return begun; });
}
