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

// Watches and stops the downloads of file_client. Called on the thread that downloads, by several
// threads at once, at least about once per second per download also while nothing arrives. Must
// not throw.
class TransferWatcher {
public:
    virtual ~TransferWatcher() = default;

    virtual void Started(const std::string& localPath) { (void)localPath; }

    // Returning false stops this download: it ends with an error and leaves no file.
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
