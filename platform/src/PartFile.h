// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_PARTFILE_H
#define VARNEX_PLATFORM_SRC_PARTFILE_H

#include <cstddef>
#include <string>
#include <system_error>

// A file on its way: written as NAME.part, mode 0600, and renamed to NAME when it is complete.
// Destroyed before that it is removed. Errors are those of the system, in std::generic_category().
//
// A NAME.part that an earlier process left behind is replaced, whatever it is, a link included;
// one that somebody is writing at this moment is not (EBUSY): a lock (flock) tells them apart.
class PartFile {
public:
    PartFile() = default;
    ~PartFile();
    PartFile(const PartFile&) = delete;
    PartFile& operator=(const PartFile&) = delete;

    // EINVAL where the last component of `path` is no file name, EISDIR where `path` is a folder.
    std::error_code Create(const std::string& path);

    std::error_code Append(const char* data, std::size_t size);

    // Closes and renames. Not synchronised with the disk: an archive lost in a power failure is
    // fetched again.
    std::error_code Commit();

private:
    std::error_code OpenFolder(const std::string& path);
    std::error_code OpenNew();
    std::error_code RemoveLeftover() const;
    bool StandsUnderItsName(int fd) const;
    void Discard();

    // The folder is kept open: the file stays in it though the process changes its own.
    int m_folder = -1;
    int m_fd = -1;
    std::string m_name;
    std::string m_partName;
};

#endif
