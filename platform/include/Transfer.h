// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_TRANSFER_H
#define VARNEX_PLATFORM_TRANSFER_H

#include <cstdint>
#include <string>
#include <system_error>

#pragma GCC visibility push(default)

namespace Varnex {

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
    // the answer's own. Empty where the server gave neither: then they cannot be continued.
    const std::string& validator;
};

constexpr char kPartSuffix[] = ".varnex-part";

// Watches and stops the downloads of file_client. Called on the thread that downloads, by several
// threads at once, at least about once per second per download also while nothing arrives. Must
// not throw.
class TransferWatcher {
public:
    virtual ~TransferWatcher() = default;

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

// Adds and removes a watcher of all downloads of the process; the caller keeps owning it. Once
// RemoveTransferWatcher has returned, no thread is inside the watcher any more; not to be called
// from within it.
void AddTransferWatcher(TransferWatcher* watcher);
void RemoveTransferWatcher(TransferWatcher* watcher);

}  // namespace Varnex

#pragma GCC visibility pop

#endif
