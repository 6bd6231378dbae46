// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_SUPPORT_DISKFAULTS_H
#define VARNEX_TESTS_SUPPORT_DISKFAULTS_H

#include <string>

// A disk that fails where a test says so. The library stands before the C library: linked into a
// test, or loaded into any program by LD_PRELOAD, where the environment says what fails.
//
// Rules are CALL:PATH:NTH:WHAT, with a semicolon between two:
//   CALL  open, write, fsync, close, rename or unlink, in all their forms (fopen, pwrite,
//   fdatasync,
//         fclose, renameat, remove, rmdir, ...). What the C library calls inside of itself is not
//         seen: the bytes of an fwrite for one.
//   PATH  where the file's path begins; of a rename, the old or the new one
//   NTH   which of the calls that match: 3, or 3+ (the third and all after it), or *
//   WHAT  an error (EIO, ENOSPC, EINTR, ...), short=N (write takes N bytes at most), delay=MS (the
//         call is made, later), or none (only recorded)
// A close that fails has closed its file all the same, as on Linux.
//
//   VARNEX_DISK_FAULTS         the rules
//   VARNEX_DISK_FAULTS_RECORD  a file that gets a line for each call that a rule was played on:
//                              "write 3 EIO /folder/name"
class DiskFaults {
public:
    // In this process, until destroyed. One at a time. Throws std::invalid_argument for rules that
    // cannot be read.
    explicit DiskFaults(const std::string& rules);
    ~DiskFaults();
    DiskFaults(const DiskFaults&) = delete;
    DiskFaults& operator=(const DiskFaults&) = delete;

    // How many calls have been failed, cut short or delayed.
    int Played() const;
};

#endif
