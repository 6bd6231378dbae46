// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_ARRAY_H
#define PEGASUS_ARRAY_H

#include <Pegasus/Common/Exception.h>

#include <deque>
#include <type_traits>
#include <vector>

namespace Pegasus {

// A growing list; copies are independent.
template <class T>
class Array {
public:
    Array() = default;
    Array(Uint32 size) : m_items(size) {}
    Array(Uint32 size, const T& item) : m_items(size, item) {}

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
    void reserveCapacity(Uint32 capacity) {
        if constexpr (!std::is_same<T, bool>::value) m_items.reserve(capacity);
    }

private:
    void Check(Uint32 index) const {
        if (index >= m_items.size()) throw IndexOutOfBoundsException();
    }

    // vector<bool> has no element to refer to.
    typename std::conditional<std::is_same<T, bool>::value, std::deque<T>, std::vector<T>>::type
        m_items;
};

template <class T>
bool operator==(const Array<T>& a, const Array<T>& b) {
    if (a.size() != b.size()) return false;
    for (Uint32 i = 0; i < a.size(); ++i) {
        if (!(a[i] == b[i])) return false;
    }
    return true;
}

}  // namespace Pegasus

#endif
