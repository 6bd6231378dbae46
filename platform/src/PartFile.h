// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_PARTFILE_H
#define VARNEX_PLATFORM_SRC_PARTFILE_H

#include <openssl/evp.h>
#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "shared/FileDescriptor.h"

// A file on its way: written as NAME.varnex-part, mode 0600, and renamed to NAME when it is
// complete. Destroyed before that it is removed, unless it is kept. Errors are those of the system,
// in std::generic_category().
//
// No file is ever wanted under the name of such a part (EINVAL), so that a folder's files cannot
// get in each other's way. A part that an earlier process left behind is replaced, whatever it is,
// a link included; one that somebody is writing at this moment is not (EBUSY): a lock (flock) tells
// them apart.
class PartFile {
public:
    PartFile() = default;
    ~PartFile();
    PartFile(const PartFile&) = delete;
    PartFile& operator=(const PartFile&) = delete;

    // EINVAL where the last component of `path` is no name for a file, EISDIR where `path` is a
    // folder.
    std::error_code Create(const std::string& path);

    // The same, but what an earlier process has kept of this very file stays, as long as it is a
    // plain file of this process's user that nobody else may write.
    std::error_code Continue(const std::string& path);

    // How many bytes of an earlier process there are; 0 after Restart().
    std::uint64_t Kept() const { return m_kept; }

    // From now on what is appended is hashed. To be called before the first Append(); false where
    // OpenSSL cannot.
    bool Hash();

    // Hashes what is kept, a piece at a time. ECANCELED once `goOn` says no.
    std::error_code HashKept(const std::function<bool()>& goOn);

    // From the beginning: what is kept or was appended is gone.
    std::error_code Restart();

    // Gathers: what is written, and what it costs, is known with one of the next calls.
    std::error_code Append(const char* data, std::size_t size);

    // Writes what is left, closes and renames. With `synced`, file and name are on the disk when it
    // returns; without, an archive that a power failure takes has to be fetched again.
    std::error_code Commit(bool synced);

    // Writes what is left, closes, and lets the part stand under its name.
    std::error_code Keep(bool synced);

    // After Commit().
    const std::string& Sha256() const { return m_sha256; }  // lower-case; empty without Hash()
    const struct stat& Status() const { return m_status; }

private:
    struct FreeDigest {
        void operator()(EVP_MD_CTX* digest) const noexcept { EVP_MD_CTX_free(digest); }
    };

    std::error_code OpenFolder(const std::string& path);
    std::error_code OpenInFolder();
    bool OpenKept();
    std::error_code OpenNew();
    std::error_code RemoveLeftover() const;
    bool StandsUnderItsName(int fd) const;
    std::error_code WriteGathered();
    std::error_code Finish(bool synced);
    std::error_code Close();
    std::error_code SyncFolder() const;
    void EndHash();
    void Discard();

    // The folder is kept open: the file stays in it though the process changes its own.
    shared::FileDescriptor m_folder;
    shared::FileDescriptor m_file;
    std::string m_name;
    std::string m_partName;
    std::uint64_t m_kept = 0;
    std::vector<char> m_gathered;
    std::unique_ptr<EVP_MD_CTX, FreeDigest> m_digest;
    std::string m_sha256;
    struct stat m_status {};
};

#endif
