// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PEGASUS_NAMEINDEX_H
#define VARNEX_PEGASUS_NAMEINDEX_H

#include <Pegasus/Common/CIMName.h>

#include <random>
#include <vector>

#include "Text.h"

namespace Pegasus::Internal {

// Finds the one of a list's items that has a name: open addressing with 4 bytes a place, so that
// an instance with thousands of properties is built in linear time. Up to 8 items it does without
// a table and looks at each.
class NameIndex {
public:
    // `nameAt(i)` is the name of item `i`.
    template <class NameAt>
    Uint32 Find(const CIMName& name, NameAt nameAt) const {
        if (m_places.empty()) return FindByLooking(name, nameAt);
        for (std::size_t at = Hash(name) & Mask(); m_places[at] != kFree; at = (at + 1) & Mask()) {
            if (nameAt(m_places[at]) == name) return m_places[at];
        }
        return PEG_NOT_FOUND;
    }

    // The last of `items` is new.
    template <class Items, class NameOf>
    void Add(const Items& items, NameOf nameOf) {
        m_count = static_cast<Uint32>(items.size());
        if (m_count <= kFew) return;
        if (m_count * 2 > m_places.size()) {
            Rebuild(items, nameOf);
        } else {
            Place(m_count - 1, nameOf(items.back()));
        }
    }

    template <class Items, class NameOf>
    void Rebuild(const Items& items, NameOf nameOf) {
        m_count = static_cast<Uint32>(items.size());
        m_places.clear();
        if (m_count <= kFew) return;
        std::size_t places = 32;
        while (places < m_count * std::size_t{3}) places *= 2;
        m_places.assign(places, kFree);
        for (Uint32 i = 0; i < m_count; ++i) Place(i, nameOf(items[i]));
    }

private:
    static constexpr Uint32 kFew = 8;
    static constexpr Uint32 kFree = PEG_NOT_FOUND;

    template <class NameAt>
    Uint32 FindByLooking(const CIMName& name, NameAt nameAt) const {
        for (Uint32 i = 0; i < m_count; ++i) {
            if (nameAt(i) == name) return i;
        }
        return PEG_NOT_FOUND;
    }

    static std::size_t Hash(const CIMName& name) {
        // FNV-1a, seeded: a server must not be able to choose names that collide.
        static const std::size_t seed = std::random_device()() ^ 14695981039346656037U;
        std::size_t hash = seed;
        for (const char16_t unit : StringUnits::Of(name.getString())) {
            hash = (hash ^ FoldCase(unit)) * 1099511628211U;
        }
        return hash ^ (hash >> 32U);
    }

    std::size_t Mask() const { return m_places.size() - 1; }

    void Place(Uint32 item, const CIMName& name) {
        std::size_t at = Hash(name) & Mask();
        while (m_places[at] != kFree) at = (at + 1) & Mask();
        m_places[at] = item;
    }

    std::vector<Uint32> m_places;  // a power of two, or none
    Uint32 m_count = 0;
};

}  // namespace Pegasus::Internal

#endif
