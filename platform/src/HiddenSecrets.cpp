// SPDX-License-Identifier: Apache-2.0
#include "HiddenSecrets.h"

#include <algorithm>
#include <mutex>

namespace {

constexpr std::size_t kBlock = 65536;  // bytes that are read before spans are put in order

bool BelongsToWord(unsigned char byte) {
    return (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
           (byte >= 'a' && byte <= 'z') || byte == '_' || byte >= 0x80;
}

struct Secret {
    std::string value, user;
    bool operator==(const Secret& other) const {
        return value == other.value && user == other.user;
    }
};

struct Known {
    std::mutex lock;
    std::vector<Secret> secrets;
    std::shared_ptr<const SecretSearch> search;
};

// Never destroyed: destructors that run at the end of the process may still log.
Known& TheKnown() {
    static Known& known = *new Known;
    return known;
}

// Overlapping and touching ones become one.
void PutInOrder(std::vector<Span>& spans, std::size_t from) {
    const auto first = spans.begin() + static_cast<std::ptrdiff_t>(from);
    std::sort(first, spans.end(), [](const Span& a, const Span& b) { return a.begin < b.begin; });
    auto last = first;
    for (auto at = first; at != spans.end(); ++at) {
        if (at != first && at->begin <= last->end) {
            last->end = std::max(last->end, at->end);
        } else if (at != first) {
            *++last = *at;
        }
    }
    if (first != spans.end()) spans.erase(last + 1, spans.end());
}

}  // namespace

void hidden_secrets::Add(const std::string& secret, const std::string& user) {
    Known& known = TheKnown();
    const std::lock_guard<std::mutex> hold(known.lock);
    const Secret added{secret, user};
    if (secret.empty() ||
        std::find(known.secrets.begin(), known.secrets.end(), added) != known.secrets.end()) {
        return;
    }
    known.secrets.push_back(added);
    const auto search = std::make_shared<SecretSearch>();
    for (const Secret& each : known.secrets) search->Add(each.value, each.user);
    search->Finish();
    known.search = search;
}

std::shared_ptr<const SecretSearch> hidden_secrets::Current() {
    Known& known = TheKnown();
    const std::lock_guard<std::mutex> hold(known.lock);
    return known.search;
}

void HiddenSpans::Level::Prepare(const SecretSearch& search) {
    std::size_t size = 2;
    while (size < search.Longest() + 2) size *= 2;
    m_search = &search;
    m_seen.resize(size);
    m_mask = size - 1;
}

void HiddenSpans::Level::Take(const MeantByte& meant, std::vector<Span>& found) {
    if (!m_words.empty()) SettleWords(BelongsToWord(meant.byte), found);
    m_seen[m_count++ & m_mask] = {meant.byte, meant.begin};
    m_state = m_search->Step(m_state, meant.byte);
    for (auto end = m_search->EndsHere(m_state); end != SecretSearch::kRoot;
         end = m_search->Shorter(end)) {
        Report(m_search->FormOf(end), meant.end, found);
    }
}

void HiddenSpans::Level::Report(const SecretSearch::Form& form, std::size_t end,
                                std::vector<Span>& found) {
    Span span{Before(form.size).begin, end};
    if (form.before && span.begin > 0) --span.begin;
    if (form.behind) ++span.end;
    if (!form.word) {
        found.push_back(span);
    } else if (m_count == form.size || !BelongsToWord(Before(form.size + 1).byte)) {
        m_words.push_back(span);
    }
}

void HiddenSpans::Level::SettleWords(bool wordGoesOn, std::vector<Span>& found) {
    if (!wordGoesOn) found.insert(found.end(), m_words.begin(), m_words.end());
    m_words.clear();
}

void HiddenSpans::Level::End(std::vector<Span>& found) { SettleWords(false, found); }

std::size_t HiddenSpans::Level::MayBeginAt(std::size_t otherwise) const {
    std::size_t begin = decoder.WaitsFrom(otherwise);
    if (const std::size_t depth = m_search->Depth(m_state)) {
        begin = std::min(begin, Before(depth).begin);
    }
    for (const Span& word : m_words) begin = std::min(begin, word.begin);
    return begin;
}

HiddenSpans::HiddenSpans(std::string_view text, std::shared_ptr<const SecretSearch> search)
    : m_text(text), m_search(std::move(search)) {
    if (!m_search || m_search->Empty()) {
        m_read = m_text.size();
        return;
    }
    const bool escapes = m_text.find_first_of("%\\&") != std::string_view::npos;
    m_depth = escapes ? m_levels.size() : 1;
    for (std::size_t i = 0; i < m_depth; ++i) m_levels[i].Prepare(*m_search);
}

bool HiddenSpans::Next(Span& span) {
    while (m_next == m_settled) {
        if (m_read == m_text.size()) return false;
        ReadBlock();
    }
    span = m_found[m_next++];
    return true;
}

void HiddenSpans::Push(const MeantByte& meant, std::size_t level) {
    m_levels[level].Take(meant, m_found);
    if (level + 1 == m_depth) return;
    m_levels[level + 1].decoder.Push(
        meant, [this, level](const MeantByte& next) { Push(next, level + 1); });
}

void HiddenSpans::EndLevels(std::size_t level) {
    for (; level < m_depth; ++level) {
        if (level > 0) {
            m_levels[level].decoder.End(
                [this, level](const MeantByte& next) { Push(next, level); });
        }
        m_levels[level].End(m_found);
    }
}

void HiddenSpans::ReadBlock() {
    m_found.erase(m_found.begin(), m_found.begin() + static_cast<std::ptrdiff_t>(m_next));
    m_next = 0;
    const std::size_t end = std::min(m_text.size(), m_read + kBlock);
    for (; m_read < end; ++m_read) {
        Push({static_cast<unsigned char>(m_text[m_read]), m_read, m_read + 1}, 0);
    }
    if (m_read == m_text.size()) EndLevels(0);
    Settle();
}

// What ends before any that is still to be found begins stays as it is.
void HiddenSpans::Settle() {
    PutInOrder(m_found, 0);
    m_settled = m_found.size();
    if (m_read == m_text.size()) {
        if (!m_found.empty()) m_found.back().end = std::min(m_found.back().end, m_text.size());
        return;
    }
    std::size_t begin = m_read;
    for (std::size_t i = 0; i < m_depth; ++i) {
        begin = std::min(begin, m_levels[i].MayBeginAt(m_read));
    }
    begin -= begin > 0 ? 1 : 0;  // a piece of base64 takes the character before it along
    while (m_settled > 0 && m_found[m_settled - 1].end >= begin) --m_settled;
}
