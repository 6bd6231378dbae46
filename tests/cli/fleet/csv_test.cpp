// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Csv.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using Kemffdc::Fleet::CsvRow;
using Kemffdc::Fleet::ReadCsv;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;

std::vector<CsvRow> Rows(const std::string& text) {
    std::vector<CsvRow> rows;
    int line = 0;
    std::string error;
    EXPECT_TRUE(ReadCsv(text, rows, line, error)) << line << ": " << error;
    return rows;
}

template <class... Fields>
auto Row(int line, Fields... fields) {
    return testing::AllOf(Field(&CsvRow::line, line),
                          Field(&CsvRow::fields, ElementsAre(fields...)));
}

TEST(ReadCsv, TakesWhatSpreadsheetsWrite) {
    EXPECT_THAT(Rows("\xEF\xBB\xBFname;via\r\nbmc1;redfish\r\n"),
                ElementsAre(Row(1, "name", "via"), Row(2, "bmc1", "redfish")));
    EXPECT_THAT(Rows("name\tvia\nbmc1\t\n"),
                ElementsAre(Row(1, "name", "via"), Row(2, "bmc1", "")));
    EXPECT_THAT(Rows("name;via\rbmc1;ipmi\r# rack 3\r\"bmc2\";cim"),
                ElementsAre(Row(1, "name", "via"), Row(2, "bmc1", "ipmi"), Row(4, "bmc2", "cim")));
}

TEST(ReadCsv, QuotedFieldsHoldDelimitersQuotesAndLineEnds) {
    EXPECT_THAT(
        Rows("a,b\n\"x, \"\"y\"\"\",\"two\nlines\"\nlast,1"),
        ElementsAre(Row(1, "a", "b"), Row(2, "x, \"y\"", "two\nlines"), Row(4, "last", "1")));
}

TEST(ReadCsv, EmptyLinesAndCommentsCountAsLinesAlone) {
    EXPECT_THAT(Rows("name\n\n# \"rack 3\n,,\n  bmc1  \n"),
                ElementsAre(Row(1, "name"), Row(5, "bmc1")));
}

struct BadRow {
    std::string text;
    int line;
    const char* said;
};

TEST(ReadCsv, WhatIsBrokenIsToldWithItsLine) {
    const BadRow rows[] = {
        {"a\nb\"c\n", 2, "a quote in the middle of a field"},
        {"a\nb\n\"c\nd\ne", 3, "a quote that is never closed"},
        {"a\n\xFF\n", 2, "no UTF-8"},
        {std::string("a\nb\0c\n", 6), 2, "a NUL byte"},
    };
    for (const BadRow& row : rows) {
        std::vector<CsvRow> read;
        int line = 0;
        std::string error;

        EXPECT_FALSE(ReadCsv(row.text, read, line, error)) << row.text;

        EXPECT_EQ(row.line, line) << row.text;
        EXPECT_THAT(error, HasSubstr(row.said));
    }
}

}  // namespace
