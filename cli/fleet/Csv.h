// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_CSV_H
#define KEMFFDC_FLEET_CSV_H

#include <string>
#include <vector>

namespace Kemffdc::Fleet {

// A row of a spreadsheet that is not empty. Fields are free of blanks around them.
struct CsvRow {
    int line = 0;  // of the file, from 1, where the row begins: a quoted field may hold line ends
    std::vector<std::string> fields;
};

// The rows of a CSV file as spreadsheets write it (RFC 4180, and its relatives): with or without a
// byte order mark, lines that end in CRLF, LF or CR, fields between commas, semicolons or tabs
// (what the first line has most of), in quotes or not. Lines that begin with # are comments.
//
// Returns false with what is wrong in `error`, and in `line` where: a quote without its partner,
// bytes that are no UTF-8, a NUL byte. Throws std::bad_alloc.
bool ReadCsv(const std::string& text, std::vector<CsvRow>& rows, int& line, std::string& error);

}  // namespace Kemffdc::Fleet

#endif
