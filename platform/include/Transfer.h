// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_TRANSFER_H
#define VARNEX_PLATFORM_TRANSFER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <system_error>

#pragma GCC visibility push(default)

namespace Varnex {

// Why a listing or a download of file_client has failed, as far as a host decides by it:
//   if (error == TransferFault::kLoginRefused) ...
// Errors that are none of these have no more meaning than their text. Those of this machine's files
// and disk are in std::generic_category(), and none of these either.
enum class TransferFault {
    kUnreachable = 1,  // no address for the name, or nobody listens there; a proxy's too
    kSilent,           // no answer in time, or a transfer that has stalled
    kTlsFailed,        // no TLS could be agreed on
    kUntrusted,        // certificate or host key is not to be trusted; no password was sent
    kLoginRefused,     // also HTTP status 401
    kNotPermitted,     // also HTTP status 403
    kNotThere,         // no such file or folder; also HTTP status 404 and 410
    kFolder,           // instead of a file; only on the thread on which the download failed
    kLost,             // the connection was lost, what came was cut, or is no answer at all
    kTooLarge,         // a listing
    kStopped           // by a watcher
};

// Its name is the standard library's.
// NOLINTNEXTLINE(readability-identifier-naming)
std::error_condition make_error_condition(TransferFault fault) noexcept;

// The category of file_client's errors, "varnex.transfer".
const std::error_category& TransferCategory() noexcept;

// The status of an HTTP answer that was not the file; 0 where the error is another one.
int HttpStatusOf(const std::error_code& error) noexcept;

// What was decided about the key of an SSH server.
enum class HostKeyDecision {
    kKnown,          // accepted
    kFirstSeen,      // accepted, and known from now on
    kNotRemembered,  // accepted, and cannot be written down
    kNotVerified,    // accepted: the policy is to accept any
    kUnknown,        // refused: the policy is to accept known ones alone
    kChanged,        // refused: others are known of that host
    kRevoked,        // refused
    kUnreadable      // refused: what is known cannot be read
};

struct HostKeyResult {
    HostKeyDecision decision;
    bool accepted;
    const std::string& host;         // as the file of known ones calls it: "[192.0.2.1]:115"
    const std::string& type;         // "ssh-ed25519"
    const std::string& fingerprint;  // "SHA256:...", as ssh-keygen -l shows it
    const std::string& file;         // of known ones
    std::size_t line;                // in it, that decided; 0: none did
    std::error_code error;           // of the file: kNotRemembered, kUnreadable
    const std::string& text;         // for people: what was decided, and what may be done about it
};

// Why a name of a listing is no file's: it is not one plain component of a path.
enum class NameFault { kEmpty, kSlash, kNulByte, kLineEnd };

struct PassedOverName {
    const std::string& folder;  // as the Uri names it
    const std::string& name;    // the server's bytes
    NameFault fault;
};

struct ListingResult {
    const std::string& folder;  // as the Uri names it
    std::size_t names;          // how many were given out
    std::error_code error;      // none: that is all of them
};

// How far a download of file_client is.
struct TransferProgress {
    const std::string& localPath;  // the final name, as given to file_client::download
    std::uint64_t bytes;           // received so far
    std::uint64_t expected;        // 0: the server did not say
};

// A file that has arrived whole.
struct TransferResult {
    const std::string& localPath;  // where it stands
    std::uint64_t bytes;
    const std::string& sha256;  // of its content, computed while it arrived: lower-case hexadecimal
    // Which file that is, as stat() tells: where all of it is as it was, nobody has changed it
    // since.
    std::uint64_t device;
    std::uint64_t inode;
    std::int64_t modified;  // nanoseconds since 1970
};

// What has arrived of a file over HTTPS. The bytes stand in `localPath` with kPartSuffix behind it,
// mode 0600. A host that moves them to another folder, to continue there, keeps that suffix.
struct PartialFile {
    const std::string& localPath;  // the final name, as given to file_client::download
    std::uint64_t bytes;
    std::uint64_t expected;  // of the whole file; 0: the server did not say
    // Which state of the file the bytes are of, as If-Range sends it (RFC 9110, section 13.1.5): a
    // strong entity tag, else the date of the last change where that is at least a second before
    // the answer's own. Empty where the server gave neither, or says that it has
    // no parts to send (Accept-Ranges: none): then they cannot be continued.
    const std::string& validator;
};

constexpr char kPartSuffix[] = ".varnex-part";

// Watches the listings and downloads of file_client, and stops downloads. Called on the thread that
// lists or downloads, by several threads at once, Progress() at least about once per second per
// download also while nothing arrives. Must not throw.
class TransferWatcher {
public:
    virtual ~TransferWatcher() = default;

    virtual void ListingStarted(const std::string& folder) { (void)folder; }

    // Called before ListingEnded(), for a listing that came whole.
    virtual void NamePassedOver(const PassedOverName& name) { (void)name; }

    virtual void ListingEnded(const ListingResult& result) { (void)result; }

    // Before the login, for every session with an SSH server, and for every further listing or
    // download over one: what is known may have changed.
    virtual void HostKeyJudged(const HostKeyResult& result) { (void)result; }

    virtual void Started(const std::string& localPath) { (void)localPath; }

    // Whether what has arrived of this file is to stay when its download fails or is stopped; one
    // watcher that says so is enough. Asked after Started(), over HTTPS alone. Nothing stays where
    // this machine's disk is at fault, or where the server has sent more than it announced.
    virtual bool KeepsPart(const std::string& localPath) {
        (void)localPath;
        return false;
    }

    // The validator of the part of this file that an earlier download has kept (PartialFile), to
    // have only the rest of the file fetched; empty: all of it. Asked after KeepsPart(). The bytes
    // count where they are a plain file of this process's user that nobody else may write, and the
    // server confirms the validator (206). Otherwise the file is fetched from its beginning, by the
    // same call, and the earlier bytes are gone. Where there is no answer, or none about the file,
    // KeepsPart() decides about the earlier bytes too.
    virtual std::string ContinuesPart(const std::string& localPath) {
        (void)localPath;
        return {};
    }

    // The server is about to send bytes behind those that `part` has; a second time where the file
    // is fetched from its beginning after all. A host that writes this down can have the file
    // continued though the process is killed: the part is then as long as it stands on the disk.
    virtual void PartBegun(const PartialFile& part) { (void)part; }

    // Called before Ended(), for what stays of a file that did not arrive whole.
    virtual void PartKept(const PartialFile& part) { (void)part; }

    // Returning false stops this download: it ends with an error and leaves no file. The bytes of a
    // part that is continued count.
    virtual bool Progress(const TransferProgress& progress) = 0;

    // Called before Ended(), for a file that is complete and stands under its final name.
    virtual void Completed(const TransferResult& result) { (void)result; }

    // `error` is empty when the file is complete and stands under its final name.
    virtual void Ended(const std::string& localPath, const std::error_code& error) {
        (void)localPath;
        (void)error;
    }
};

// Adds and removes a watcher of all transfers of the process; the caller keeps owning it. Once
// RemoveTransferWatcher has returned, no thread is inside the watcher any more; not to be called
// from within it.
void AddTransferWatcher(TransferWatcher* watcher);
void RemoveTransferWatcher(TransferWatcher* watcher);

}  // namespace Varnex

namespace std {
template <>
struct is_error_condition_enum<Varnex::TransferFault> : true_type {};
}  // namespace std

#pragma GCC visibility pop

#endif
