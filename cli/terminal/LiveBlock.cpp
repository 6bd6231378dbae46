// SPDX-License-Identifier: Apache-2.0
#include "cli/terminal/LiveBlock.h"

namespace Kemffdc {
namespace {

// ECMA-48. Lines are erased behind what they hold now, not before: nothing is ever blank for a
// moment.
constexpr char kEraseToEndOfLine[] = "\033[K";
constexpr char kEraseToEndOfScreen[] = "\033[J";

std::string UpBy(std::size_t lines) {
    return lines == 0 ? "" : "\033[" + std::to_string(lines) + "A";
}

}  // namespace

std::string LiveBlock::Next(const std::vector<std::string>& said,
                            const std::vector<std::string>& block) {
    if (said.empty() && block == m_shown) return "";
    std::vector<std::string> lines = said;
    lines.insert(lines.end(), block.begin(), block.end());
    std::string bytes = "\r" + UpBy(m_shown.size());
    m_shown = block;
    if (lines.empty()) return bytes + kEraseToEndOfScreen;
    const std::string last = lines.back();
    lines.pop_back();
    for (const std::string& line : lines) bytes += line + kEraseToEndOfLine + "\n";
    return bytes + last + kEraseToEndOfScreen;
}

}  // namespace Kemffdc
