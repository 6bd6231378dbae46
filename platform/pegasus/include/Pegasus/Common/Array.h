// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_ARRAY_H
#define PEGASUS_ARRAY_H

#include <Pegasus/Common/Exception.h>

#include <vector>

namespace Pegasus {

// A growing list; copies are independent.
template <class T>
class Array {
public:
    Uint32 size() const { return static_cast<Uint32>(m_items.size()); }

    // Throw IndexOutOfBoundsException.
    T& operator[](Uint32 index) {
        Check(index);
        return m_items[index];
    }
    const T& operator[](Uint32 index) const {
        Check(index);
        return m_items[index];
    }

    void append(const T& item) { m_items.push_back(item); }

private:
    void Check(Uint32 index) const {
        if (index >= m_items.size()) throw IndexOutOfBoundsException();
    }

    std::vector<T> m_items;
};

}  // namespace Pegasus

#endif
