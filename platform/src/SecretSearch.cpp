// SPDX-License-Identifier: Apache-2.0
#include "SecretSearch.h"

#include <algorithm>

#include "EscapeDecoder.h"
#include "shared/Base64.h"
#include "shared/Hex.h"
#include "shared/Utf8.h"

namespace {

constexpr std::size_t kShort = 4;  // bytes; what is shorter stands in every other text by chance
constexpr int kLevels = 3;         // of escapes, as many as HiddenSecrets takes off

// `text` with one level of escapes taken off.
std::string Decoded(const std::string& text) {
    std::string out;
    EscapeDecoder decoder;
    const auto take = [&out](const MeantByte& meant) { out += static_cast<char>(meant.byte); };
    for (const char c : text) decoder.Push({static_cast<unsigned char>(c), 0, 0}, take);
    decoder.End(take);
    return out;
}

std::string Base64Url(std::string base64) {
    std::replace(base64.begin(), base64.end(), '+', '-');
    std::replace(base64.begin(), base64.end(), '/', '_');
    return base64;
}

bool IsAscii(const std::string& text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// Where each byte was taken for a Latin-1 character.
std::string Latin1AsUtf8(const std::string& bytes) {
    std::string out;
    for (const char c : bytes) shared::AppendUtf8(out, static_cast<unsigned char>(c));
    return out;
}

}  // namespace

void SecretSearch::Add(const std::string& secret, const std::string& user) {
    if (secret.empty()) return;
    AddPlain(secret);
    AddBase64(secret);
    AddHex(secret);
    if (!user.empty()) {
        const std::string both = shared::ToBase64(user + ":" + secret);
        AddWord(both);
        AddWord(Base64Url(both));
    }
}

// A secret that itself looks escaped is taken apart with the text around it.
void SecretSearch::AddPlain(const std::string& secret) {
    const Form kind{0, secret.size() < kShort, false, false};
    std::string form = secret;
    for (int level = 0; level <= kLevels; ++level) {
        AddForm(form, kind);
        // What stands behind it in a text decides what backslashes at its end mean.
        form = Decoded(form.substr(0, form.find_last_not_of('\\') + 1));
    }
    if (!IsAscii(secret)) AddForm(Latin1AsUtf8(secret), kind);
    std::string asInForms = secret;  // of HTML
    std::replace(asInForms.begin(), asInForms.end(), ' ', '+');
    AddForm(asInForms, kind);
}

// Of what stands before and behind the secret nothing is known: only the characters count that
// hold bits of the secret alone.
void SecretSearch::AddBase64(const std::string& secret) {
    if (secret.size() < kShort) {
        if (secret.size() == 1) return;  // two characters and padding are every other word
        AddWord(shared::ToBase64(secret));
        AddWord(Base64Url(shared::ToBase64(secret)));
        return;
    }
    for (std::size_t before = 0; before < 3; ++before) {
        const std::size_t from = (8 * before + 5) / 6;
        const std::size_t bits = 8 * (before + secret.size());
        const std::size_t to = bits / 6;
        const std::string form =
            shared::ToBase64(std::string(before, '\0') + secret).substr(from, to - from);
        const Form kind{0, false, before > 0, bits % 6 != 0};
        AddForm(form, kind);
        AddForm(Base64Url(form), kind);
    }
}

void SecretSearch::AddHex(const std::string& secret) {
    if (secret.size() == 1) return;
    for (const char* between : {"", " ", ":"}) {
        for (const char* digits : {"0123456789abcdef", "0123456789ABCDEF"}) {
            AddForm(shared::ToHex(secret, digits, between),
                    {0, secret.size() < kShort, false, false});
        }
    }
}

void SecretSearch::AddForm(const std::string& text, const Form& kind) {
    if (text.empty()) return;
    State state = kRoot;
    for (const char c : text) state = ChildMade(state, static_cast<unsigned char>(c));
    Form& form = m_nodes[state].form;
    form.word = kind.word && (form.size == 0 || form.word);
    form.before = kind.before || form.before;
    form.behind = kind.behind || form.behind;
    form.size = text.size();
    m_longest = std::max(m_longest, text.size());
}

SecretSearch::State SecretSearch::Child(State state, unsigned char byte) const {
    if (state == kRoot) return m_first[byte];
    State child = m_nodes[state].child;
    while (child != kRoot && m_nodes[child].byte != byte) child = m_nodes[child].sibling;
    return child;
}

SecretSearch::State SecretSearch::ChildMade(State state, unsigned char byte) {
    if (const State child = Child(state, byte)) return child;
    const auto made = static_cast<State>(m_nodes.size());
    Node node;
    node.byte = byte;
    node.depth = m_nodes[state].depth + 1;
    if (state == kRoot) m_first[byte] = made;
    node.sibling = m_nodes[state].child;
    m_nodes[state].child = made;
    m_nodes.push_back(node);
    return made;
}

// Breadth first: a state's fallback is never deeper than its parent.
void SecretSearch::Finish() {
    std::vector<State> queue(1, kRoot);
    for (std::size_t at = 0; at < queue.size(); ++at) {
        const State parent = queue[at];
        for (State child = m_nodes[parent].child; child != kRoot; child = m_nodes[child].sibling) {
            Node& node = m_nodes[child];
            node.fail = parent == kRoot ? kRoot : Step(m_nodes[parent].fail, node.byte);
            node.shorter = EndsHere(node.fail);
            queue.push_back(child);
        }
    }
}

SecretSearch::State SecretSearch::Step(State state, unsigned char byte) const {
    while (true) {
        const State child = Child(state, byte);
        if (child != kRoot || state == kRoot) return child;
        state = m_nodes[state].fail;
    }
}
