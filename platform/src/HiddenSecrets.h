// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_HIDDENSECRETS_H
#define VARNEX_PLATFORM_SRC_HIDDENSECRETS_H

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "EscapeDecoder.h"
#include "SecretSearch.h"

// A piece of a text, to be masked.
struct Span {
    std::size_t begin = 0;
    std::size_t end = 0;
};

// The secrets that the host has named. They are kept for the life of the process.
namespace hidden_secrets {

void Add(const std::string& secret, const std::string& user);

// Null where none has been named.
std::shared_ptr<const SecretSearch> Current();

}  // namespace hidden_secrets

// Where in a text those secrets stand, whatever their form, up to three levels of escapes deep.
// Takes time in proportion to the length, and memory that does not depend on it.
class HiddenSpans {
public:
    // `search` may be null.
    HiddenSpans(std::string_view text, std::shared_ptr<const SecretSearch> search);

    // In order and apart from each other. False: there are no more.
    bool Next(Span& span);

private:
    // The text at one level of escapes, as far as it has been read.
    class Level {
    public:
        void Prepare(const SecretSearch& search);
        void Take(const MeantByte& meant, std::vector<Span>& found);
        void End(std::vector<Span>& found);
        std::size_t MayBeginAt(std::size_t otherwise) const;

        EscapeDecoder decoder;  // on the way to this level

    private:
        struct Seen {
            unsigned char byte = 0;
            std::size_t begin = 0;
        };

        void Report(const SecretSearch::Form& form, std::size_t end, std::vector<Span>& found);
        void SettleWords(bool wordGoesOn, std::vector<Span>& found);
        const Seen& Before(std::size_t count) const { return m_seen[(m_count - count) & m_mask]; }

        const SecretSearch* m_search = nullptr;
        SecretSearch::State m_state = SecretSearch::kRoot;
        std::vector<Seen> m_seen;  // a ring
        std::size_t m_mask = 0;
        std::size_t m_count = 0;
        std::vector<Span> m_words;  // to be reported if the next byte belongs to no word
    };

    void Push(const MeantByte& meant, std::size_t level);
    void EndLevels(std::size_t level);
    void ReadBlock();
    void Settle();

    std::string_view m_text;
    std::shared_ptr<const SecretSearch> m_search;
    std::array<Level, 4> m_levels;  // the first without a decoder
    std::size_t m_depth = 0;        // levels in use
    std::size_t m_read = 0;
    std::vector<Span> m_found;
    std::size_t m_next = 0;     // of m_found
    std::size_t m_settled = 0;  // the first so many of m_found stay as they are
};

#endif
