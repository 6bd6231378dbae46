// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_TERMINAL_TEXT_H
#define KEMFFDC_TERMINAL_TEXT_H

#include <chrono>
#include <cstdint>
#include <string>

namespace Kemffdc {

// A text that came from a BMC, fit for a terminal, a log and JSON: secrets masked, control bytes
// and bytes that are no UTF-8 written out, line ends turned into blanks, at most `limit` bytes.
std::string Clean(const std::string& text, std::size_t limit = 300);

// `text` as valid UTF-8: every byte that is not part of a well-formed character becomes U+FFFD.
std::string ValidUtf8(const std::string& text);

// Whether it holds bytes below 20h, or 7Fh.
bool HasControl(const std::string& text);

// `text` cut to at most `bytes`, never inside a character.
std::string CutUtf8(const std::string& text, std::size_t bytes);

// The columns of a terminal that `text`, which is valid UTF-8 and free of control bytes, takes: two
// for each wide character, none for one that combines with the one before it.
std::size_t ColumnsOf(const std::string& text);

// `text` cut to at most so many columns, never inside a character.
std::string CutToColumns(const std::string& text, std::size_t columns);

// The same, filled up with blanks to exactly so many.
std::string FitToColumns(const std::string& text, std::size_t columns);

// "512 B", "1.0 KiB", "12.4 MiB", "3.2 GiB".
std::string HumanBytes(std::uint64_t bytes);

// "0:07", "12:34", "1:02:03".
std::string Elapsed(std::chrono::milliseconds time);

}  // namespace Kemffdc

#endif
