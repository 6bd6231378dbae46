// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_TESTS_ARCHIVE_MADEARCHIVE_H
#define KEMFFDC_TESTS_ARCHIVE_MADEARCHIVE_H

#include <archive.h>
#include <archive_entry.h>

#include <string>
#include <vector>

// An archive that a test makes.
struct MadeEntry {
    std::string name;
    std::string content;
    unsigned type = AE_IFREG;
};

// At `path`; packed by gzip, or not packed. "pax" and "gnutar" are formats of libarchive.
inline void MakeArchive(const std::string& path, const std::vector<MadeEntry>& entries,
                        bool packed = true, const char* format = "gnutar") {
    archive* made = archive_write_new();
    packed ? archive_write_add_filter_gzip(made) : archive_write_add_filter_none(made);
    archive_write_set_format_by_name(made, format);
    archive_write_open_filename(made, path.c_str());
    for (const MadeEntry& one : entries) {
        archive_entry* entry = archive_entry_new();
        archive_entry_set_pathname(entry, one.name.c_str());
        archive_entry_set_filetype(entry, one.type);
        archive_entry_set_perm(entry, 0644);
        if (one.type == AE_IFLNK) archive_entry_set_symlink(entry, one.content.c_str());
        if (one.type == AE_IFREG) {
            archive_entry_set_size(entry, static_cast<la_int64_t>(one.content.size()));
        }
        archive_write_header(made, entry);
        if (one.type == AE_IFREG) {
            archive_write_data(made, one.content.data(), one.content.size());
        }
        archive_entry_free(entry);
    }
    archive_write_free(made);
}

#endif
