// SPDX-License-Identifier: Apache-2.0
#include "cli/archive/Kind.h"

#include <gtest/gtest.h>

#include "support/TempFolder.h"

namespace Kemffdc::Archives {
namespace {

TEST(ArchiveKind, IsJudgedByTheFirstBytesAndElseByTheType) {
    const struct {
        std::string bytes;
        const char* type;
        const char* extension;
    } rows[] = {
        {std::string("PK\x03\x04 rest", 9), "application/gzip", ".zip"},
        {std::string("\x1F\x8B\x08 no gzip after all", 22), "", ".gz"},
        {std::string("\xFD\x37zXZ\0 cut", 10), "", ".xz"},
        {std::string("7z\xBC\xAF\x27\x1C", 6), "", ".7z"},
        {"{\"a\": 1}", "", ".json"},
        {"All is well.\n", "application/octet-stream", ".txt"},
        {std::string("\x01\x02\x00\x03", 4), "application/zip", ".zip"},
        {std::string("\x01\x02\x00\x03", 4), "application/octet-stream", ".bin"},
        {"", "", ".bin"},
    };
    const TempFolder place;
    for (const auto& row : rows) {
        place.Write("data", row.bytes);
        EXPECT_EQ(ExtensionFor(place / "data", row.type), row.extension) << row.extension;
    }
}

TEST(ArchiveKind, ANameGetsTheEndThatFits) {
    const struct {
        const char* name;
        const char* extension;
        const char* expected;
    } rows[] = {
        {"dump", ".zip", "dump.zip"},        {"dump.tar.gz", ".zip", "dump.zip"},
        {"dump.TGZ", ".tar.gz", "dump.TGZ"}, {"dump.tar.gz", ".bin", "dump.tar.gz"},
        {"7.0", ".tar.xz", "7.0.tar.xz"},    {"run.log", ".txt", "run.log"},
        {".zip", ".zip", ".zip.zip"},
    };
    for (const auto& row : rows) EXPECT_EQ(NamedAs(row.name, row.extension), row.expected);
}

}  // namespace
}  // namespace Kemffdc::Archives
