// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PEGASUS_NAMEINDEX_H
#define VARNEX_PEGASUS_NAMEINDEX_H

#include <Pegasus/Common/CIMName.h>

#include <random>
#include <vector>

#include "Text.h"

namespace Pegasus::Internal {

// Finds the one of a list's items that has a name: open addressing with 8 bytes a place, so that
// an instance with thousands of properties is built in linear time. Up to 8 items it does without
// a table and looks at each.
//
// `nameAt(i)` is the name of item `i` in all operations.
class NameIndex {
public:
    template <class NameAt>
    Uint32 Find(const CIMName& name, NameAt nameAt) const {
        if (m_places.empty()) return FindByLooking(name, nameAt);
        const Uint32 hash = Hash(name);
        for (std::size_t at = hash & Mask(); m_places[at].item != kFree; at = (at + 1) & Mask()) {
            const Entry& entry = m_places[at];
            if (entry.hash == hash && nameAt(entry.item) == name) return entry.item;
        }
        return PEG_NOT_FOUND;
    }

    // The list has one more item, at its end.
    template <class NameAt>
    void Add(NameAt nameAt) {
        if (m_places.empty() && m_count == kFew) {
            Rebuild(kFew + 1, nameAt);
            return;
        }
        const Uint32 item = m_count++;
        if (m_places.empty()) return;
        if (m_count * std::size_t{2} > m_places.size()) Grow();
        Place({Hash(nameAt(item)), item});
    }

    // The list has changed anywhere and has now `count` items.
    template <class NameAt>
    void Rebuild(Uint32 count, NameAt nameAt) {
        m_count = count;
        m_places.clear();
        if (count <= kFew) return;
        std::size_t places = 32;
        while (places < count * std::size_t{2}) places *= 2;
        m_places.resize(places);
        for (Uint32 i = 0; i < count; ++i) Place({Hash(nameAt(i)), i});
    }

private:
    static constexpr Uint32 kFew = 8;
    static constexpr Uint32 kFree = PEG_NOT_FOUND;

    struct Entry {
        Uint32 hash = 0;
        Uint32 item = kFree;
    };

    template <class NameAt>
    Uint32 FindByLooking(const CIMName& name, NameAt nameAt) const {
        for (Uint32 i = 0; i < m_count; ++i) {
            if (nameAt(i) == name) return i;
        }
        return PEG_NOT_FOUND;
    }

    static Uint32 Hash(const CIMName& name) {
        // FNV-1a, seeded: a server must not be able to choose names that collide.
        static const std::size_t seed = std::random_device()() ^ 14695981039346656037U;
        std::size_t hash = seed;
        for (const char16_t unit : StringUnits::Of(name.getString())) {
            hash = (hash ^ FoldCase(unit)) * 1099511628211U;
        }
        return static_cast<Uint32>(hash ^ (hash >> 32U));
    }

    std::size_t Mask() const { return m_places.size() - 1; }

    void Place(const Entry& entry) {
        std::size_t at = entry.hash & Mask();
        while (m_places[at].item != kFree) at = (at + 1) & Mask();
        m_places[at] = entry;
    }

    void Grow() {
        std::vector<Entry> old(m_places.size() * 2);
        old.swap(m_places);
        for (const Entry& entry : old) {
            if (entry.item != kFree) Place(entry);
        }
    }

    std::vector<Entry> m_places;  // a power of two, or none; at most half are taken
    Uint32 m_count = 0;
};

}  // namespace Pegasus::Internal

#endif
