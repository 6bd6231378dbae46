// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Csv.h"

#include <csv.h>

#include <algorithm>
#include <new>

#include "cli/terminal/Text.h"

namespace Kemffdc::Fleet {
namespace {

constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";

// What the first line has most of; a comma where it has none.
unsigned char DelimiterOf(const std::string& text) {
    const std::string first = text.substr(0, text.find_first_of("\r\n"));
    unsigned char best = ',';
    for (const char candidate : {',', ';', '\t'}) {
        if (std::count(first.begin(), first.end(), candidate) >
            std::count(first.begin(), first.end(), static_cast<char>(best))) {
            best = static_cast<unsigned char>(candidate);
        }
    }
    return best;
}

// Behind the line end, which libcsv finds in a CR alone too.
std::size_t EndOfLine(const std::string& text, std::size_t at) {
    const std::size_t end = text.find_first_of("\r\n", at);
    if (end == std::string::npos) return text.size();
    return text.compare(end, 2, "\r\n") == 0 ? end + 2 : end + 1;
}

// libcsv's parser, which is to be freed. It cuts off the blanks around a field.
class Parser {
public:
    explicit Parser(unsigned char delimiter) {
        if (csv_init(&m_parser, CSV_STRICT | CSV_STRICT_FINI) != 0) throw std::bad_alloc();
        csv_set_delim(&m_parser, delimiter);
    }
    ~Parser() { csv_free(&m_parser); }
    Parser(const Parser&) = delete;
    Parser& operator=(const Parser&) = delete;

    // A line with its end. Whether it could be read.
    bool Feed(const std::string& line) {
        ++m_line;
        if (!m_inRow && (line[0] == '#' || line[0] == '\r' || line[0] == '\n')) return true;
        if (!m_inRow) m_row.line = m_line;
        m_inRow = true;
        const std::size_t taken =
            csv_parse(&m_parser, line.data(), line.size(), TakeField, EndRow, this);
        return taken == line.size();
    }

    bool End() { return csv_fini(&m_parser, TakeField, EndRow, this) == 0; }

    int BeginOfRow() const { return m_row.line; }
    bool IsOutOfMemory() { return csv_error(&m_parser) == CSV_ENOMEM; }
    std::vector<CsvRow>& Rows() { return m_rows; }

private:
    static void TakeField(void* text, std::size_t size, void* self) {
        const char* bytes = static_cast<const char*>(text);
        static_cast<Parser*>(self)->m_row.fields.emplace_back(bytes, size);
    }

    static void EndRow(int /*end*/, void* self) {
        Parser& parser = *static_cast<Parser*>(self);
        const auto& fields = parser.m_row.fields;
        const bool empty = std::all_of(fields.begin(), fields.end(),
                                       [](const std::string& field) { return field.empty(); });
        if (!empty) parser.m_rows.push_back(std::move(parser.m_row));
        parser.m_row = {};
        parser.m_inRow = false;
    }

    csv_parser m_parser{};
    std::vector<CsvRow> m_rows;
    CsvRow m_row;
    int m_line = 0;
    bool m_inRow = false;
};

}  // namespace

bool ReadCsv(const std::string& text, std::vector<CsvRow>& rows, int& line, std::string& error) {
    std::size_t at = text.rfind(kByteOrderMark, 0) == 0 ? sizeof kByteOrderMark - 1 : 0;
    Parser parser(DelimiterOf(text));
    for (int number = 1; at < text.size(); ++number) {
        const std::size_t end = EndOfLine(text, at);
        const std::string piece = text.substr(at, end - at);
        at = end;
        line = number;
        if (piece.find('\0') != std::string::npos) {
            error = "a NUL byte: save it as CSV in UTF-8";
            return false;
        }
        if (ValidUtf8(piece) != piece) {
            error = "bytes that are no UTF-8: save it as CSV in UTF-8";
            return false;
        }
        if (parser.Feed(piece)) continue;
        if (parser.IsOutOfMemory()) throw std::bad_alloc();
        error =
            "a quote in the middle of a field: put the field in quotes, and double each quote in it";
        return false;
    }
    if (!parser.End()) {
        line = parser.BeginOfRow();
        error = "a quote that is never closed";
        return false;
    }
    rows = std::move(parser.Rows());
    return true;
}

}  // namespace Kemffdc::Fleet
