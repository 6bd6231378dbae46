// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_FAULTS_H
#define KEMFFDC_FLEET_FAULTS_H

#include <cstddef>
#include <iterator>
#include <map>
#include <string>

#include "cli/ExitCodes.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Fleet {

// What is wrong in a list of BMCs: of many faults those that stand first are kept.
class Faults {
public:
    // In that line, counted from 1. 0: in no file. The text is free of control bytes.
    void Add(int line, const std::string& text) {
        ++m_count;
        m_texts.emplace(line, CutUtf8(text, kLongest));
        if (m_texts.size() > kMost) m_texts.erase(std::prev(m_texts.end()));
    }

    bool None() const { return m_count == 0; }

    // "FILE:LINE: what" a line, as kUsage; no failure where there is none.
    Outcome Told(const std::string& path) const {
        std::string text;
        for (const auto& [line, fault] : m_texts) {
            if (!text.empty()) text += "\n";
            if (line > 0) text.append(path).append(":").append(std::to_string(line)).append(": ");
            text += fault;
        }
        if (m_count > kMost) text += "\nand " + std::to_string(m_count - kMost) + " more.";
        return m_count == 0 ? Outcome{} : Failure(kUsage, text);
    }

private:
    static constexpr std::size_t kMost = 20;
    static constexpr std::size_t kLongest = 1000;  // bytes of a fault

    std::multimap<int, std::string> m_texts;  // by line
    std::size_t m_count = 0;
};

}  // namespace Kemffdc::Fleet

#endif
