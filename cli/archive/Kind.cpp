// SPDX-License-Identifier: Apache-2.0
#include "cli/archive/Kind.h"

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>
#include <boost/algorithm/string/case_conv.hpp>
#include <boost/algorithm/string/predicate.hpp>
#include <cstring>
#include <fstream>
#include <memory>

namespace Kemffdc::Archives {
namespace {

constexpr std::size_t kBeginning = 512;
constexpr std::size_t kPiece = std::size_t{64} * 1024;

struct FreeArchive {
    void operator()(archive* reader) const { (void)archive_read_free(reader); }
};

struct Start {
    const char* bytes;
    std::size_t size;
    const char* extension;
};
constexpr Start kStarts[] = {
    {"\x1F\x8B", 2, ".gz"},           {"PK\x03\x04", 4, ".zip"}, {"PK\x05\x06", 4, ".zip"},
    {"\xFD\x37zXZ\0", 6, ".xz"},      {"BZh", 3, ".bz2"},        {"\x28\xB5\x2F\xFD", 4, ".zst"},
    {"7z\xBC\xAF\x27\x1C", 6, ".7z"},
};

struct Type {
    const char* name;
    const char* extension;
};
constexpr Type kTypes[] = {
    {"application/json", ".json"},
    {"application/zip", ".zip"},
    {"text/", ".txt"},
    {"application/xml", ".xml"},
};

// Ends that a name may have already; the longer ones first.
constexpr const char* kExtensions[] = {
    ".tar.gz", ".tar.xz", ".tar.bz2", ".tar.zst", ".tgz", ".txz", ".gz",  ".xz",  ".bz2",
    ".zst",    ".zip",    ".7z",      ".tar",     ".bin", ".txt", ".log", ".xml", ".json",
};

std::string Beginning(const std::string& path) {
    std::string bytes(kBeginning, '\0');
    std::ifstream file(path, std::ios::binary);
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(file.gcount()));
    return bytes;
}

// Whether a tar is in it, packed or not.
bool HoldsTar(const std::string& path) {
    const std::unique_ptr<archive, FreeArchive> reader(archive_read_new());
    if (!reader) return false;
    archive_read_support_filter_all(reader.get());
    archive_read_support_format_tar(reader.get());
    archive_entry* first = nullptr;
    return archive_read_open_filename(reader.get(), path.c_str(), kPiece) == ARCHIVE_OK &&
           archive_read_next_header(reader.get(), &first) == ARCHIVE_OK;
}

bool IsText(const std::string& bytes) {
    return !bytes.empty() && std::all_of(bytes.begin(), bytes.end(), [](unsigned char c) {
        return c >= 0x20 || c == '\n' || c == '\r' || c == '\t';
    });
}

// Of the same kind, whatever the spelling.
std::string Usual(const std::string& extension) {
    if (extension == ".tgz") return ".tar.gz";
    if (extension == ".txz") return ".tar.xz";
    return extension == ".log" ? ".txt" : extension;
}

}  // namespace

std::string ExtensionFor(const std::string& path, const std::string& contentType) {
    const std::string bytes = Beginning(path);
    for (const Start& start : kStarts) {
        if (bytes.compare(0, start.size, start.bytes, start.size) != 0) continue;
        const std::string extension = start.extension;
        const bool packs = extension != ".zip" && extension != ".7z";
        return packs && HoldsTar(path) ? ".tar" + extension : extension;
    }
    if (bytes.size() > 262 && bytes.compare(257, 5, "ustar") == 0) return ".tar";
    if (IsText(bytes)) {
        const std::size_t first = bytes.find_first_not_of(" \r\n\t");
        const bool json =
            first != std::string::npos && (bytes[first] == '{' || bytes[first] == '[');
        return json ? ".json" : ".txt";
    }
    const std::string type = boost::algorithm::to_lower_copy(contentType);
    for (const Type& known : kTypes) {
        if (type.compare(0, std::strlen(known.name), known.name) == 0) return known.extension;
    }
    return ".bin";
}

std::string NamedAs(const std::string& name, const std::string& extension) {
    const std::string lower = boost::algorithm::to_lower_copy(name);
    for (const char* known : kExtensions) {
        if (!boost::algorithm::ends_with(lower, known) || lower.size() == std::strlen(known))
            continue;
        if (Usual(known) == extension) return name;
        // An unknown kind is called what its owner calls it.
        if (extension == ".bin") return name;
        return name.substr(0, name.size() - std::strlen(known)) + extension;
    }
    return name + extension;
}

}  // namespace Kemffdc::Archives
