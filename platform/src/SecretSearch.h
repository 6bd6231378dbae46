// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_SECRETSEARCH_H
#define VARNEX_PLATFORM_SRC_SECRETSEARCH_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// The forms in which secrets may stand in a text, searched for all at once (Aho and Corasick).
class SecretSearch {
public:
    struct Form {
        std::size_t size = 0;  // bytes
        bool word = false;     // counts only where no letter, digit or "_" stands beside it
        bool before = false;   // base64: the character before it holds bits of the secret too,
        bool behind = false;   // and so does the one behind it
    };

    // Every form of one secret: as it is, base64 at each of the three alignments (base64url too),
    // hexadecimal. `user` may be empty: with it, base64 of "user:secret". Below four bytes a form
    // counts only as a word of its own.
    void Add(const std::string& secret, const std::string& user);

    // To be called once, after the last Add() and before the first Step().
    void Finish();

    bool Empty() const { return m_nodes.size() == 1; }
    std::size_t Longest() const { return m_longest; }  // bytes of the longest form

    // The state after one more byte. kRoot is the first.
    using State = std::uint32_t;
    static constexpr State kRoot = 0;
    State Step(State state, unsigned char byte) const;

    // How many of the bytes before may be the beginning of a form.
    std::size_t Depth(State state) const { return m_nodes[state].depth; }

    // The longest form that ends in `state`, then the shorter ones: the next state is `EndsHere()`
    // of Shorter(); kRoot means that there is none.
    State EndsHere(State state) const {
        return m_nodes[state].form.size > 0 ? state : m_nodes[state].shorter;
    }
    State Shorter(State state) const { return m_nodes[state].shorter; }
    const Form& FormOf(State state) const { return m_nodes[state].form; }

private:
    struct Node {
        unsigned char byte = 0;
        State child = kRoot;  // the first
        State sibling = kRoot;
        State fail = kRoot;
        State shorter = kRoot;
        std::uint32_t depth = 0;
        Form form;
    };

    void AddPlain(const std::string& secret);
    void AddBase64(const std::string& secret);
    void AddHex(const std::string& secret);
    void AddForm(const std::string& text, const Form& kind);
    void AddWord(const std::string& text) { AddForm(text, {0, true, false, false}); }
    State Child(State state, unsigned char byte) const;
    State ChildMade(State state, unsigned char byte);

    std::vector<Node> m_nodes = std::vector<Node>(1);
    std::array<State, 256> m_first{};  // children of the root
    std::size_t m_longest = 0;
};

#endif
