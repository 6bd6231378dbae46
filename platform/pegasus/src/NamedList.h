// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PEGASUS_NAMEDLIST_H
#define VARNEX_PEGASUS_NAMEDLIST_H

#include <Pegasus/Common/CIMName.h>

#include <map>
#include <vector>

#include "Text.h"

namespace Pegasus::Internal {

// Handles (properties, qualifiers) in their order, found by their names without regard to case. A
// tree and no hash table: no server can choose names that make it slow.
template <class Item>
class NamedList {
public:
    // False where there is one of this name already.
    bool Add(const Item& item) {
        // Held by the content that all copies of the handle share.
        const CIMName* const name = &item.getName();
        if (!m_places.emplace(name, Size()).second) return false;
        m_items.push_back(item);
        return true;
    }

    // The position, or PEG_NOT_FOUND.
    Uint32 Find(const CIMName& name) const {
        const auto found = m_places.find(&name);
        return found == m_places.end() ? PEG_NOT_FOUND : found->second;
    }

    // Throws IndexOutOfBoundsException.
    const Item& At(Uint32 index) const {
        if (index >= m_items.size()) throw IndexOutOfBoundsException();
        return m_items[index];
    }

    Uint32 Size() const { return static_cast<Uint32>(m_items.size()); }

private:
    struct Before {
        bool operator()(const CIMName* a, const CIMName* b) const {
            return CompareNoCase(a->getString(), b->getString()) < 0;
        }
    };

    std::vector<Item> m_items;
    std::map<const CIMName*, Uint32, Before> m_places;
};

}  // namespace Pegasus::Internal

#endif
