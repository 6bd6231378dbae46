// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_CIMVALUE_H
#define PEGASUS_CIMVALUE_H

#include <Pegasus/Common/Array.h>
#include <Pegasus/Common/CIMDateTime.h>
#include <Pegasus/Common/CIMObjectPath.h>
#include <Pegasus/Common/CIMType.h>
#include <Pegasus/Common/Char16.h>
#include <Pegasus/Common/String.h>

#include <memory>

namespace Pegasus {

// A value of one CIM type or an array of it, or a null of that type. Copies share their content,
// which never changes.
//
// Mind literals: CIMValue("text") is the BOOLEAN true, and CIMValue(0) is a sint32. Write
// CIMValue(String("text")) and CIMValue(Uint32(0)).
class CIMValue {
public:
    // A null boolean.
    CIMValue();
    // A null of the type; `arraySize` is of no importance.
    CIMValue(CIMType type, Boolean isArray, Uint32 arraySize = 0);
    CIMValue(Boolean value);
    CIMValue(Uint8 value);
    CIMValue(Sint8 value);
    CIMValue(Uint16 value);
    CIMValue(Sint16 value);
    CIMValue(Uint32 value);
    CIMValue(Sint32 value);
    CIMValue(Uint64 value);
    CIMValue(Sint64 value);
    CIMValue(Real32 value);
    CIMValue(Real64 value);
    CIMValue(const Char16& value);
    CIMValue(const String& value);
    CIMValue(const CIMDateTime& value);
    CIMValue(const CIMObjectPath& value);
    CIMValue(const Array<Boolean>& value);
    CIMValue(const Array<Uint8>& value);
    CIMValue(const Array<Sint8>& value);
    CIMValue(const Array<Uint16>& value);
    CIMValue(const Array<Sint16>& value);
    CIMValue(const Array<Uint32>& value);
    CIMValue(const Array<Sint32>& value);
    CIMValue(const Array<Uint64>& value);
    CIMValue(const Array<Sint64>& value);
    CIMValue(const Array<Real32>& value);
    CIMValue(const Array<Real64>& value);
    CIMValue(const Array<Char16>& value);
    CIMValue(const Array<String>& value);
    CIMValue(const Array<CIMDateTime>& value);
    CIMValue(const Array<CIMObjectPath>& value);

    CIMType getType() const { return m_type; }
    Boolean isArray() const { return m_isArray; }
    Boolean isNull() const { return !m_content; }

    // T: the types above, Array<> of each included. Throws TypeMismatchException for another type;
    // a null leaves `value` as it was.
    template <class T>
    void get(T& value) const;

    // Type, being an array, being null and content must all agree.
    Boolean equal(const CIMValue& other) const;

    // Nulls are empty; booleans TRUE and FALSE; reals as printf's "%.16e"; each element of an array
    // is followed by one blank, the last one too.
    String toString() const;

private:
    struct Content;
    template <class T>
    struct ContentOf;
    template <class T>
    void Set(const T& value);

    CIMType m_type = CIMTYPE_BOOLEAN;
    Boolean m_isArray = false;
    std::shared_ptr<const Content> m_content;
};

inline bool operator==(const CIMValue& a, const CIMValue& b) { return a.equal(b); }
inline bool operator!=(const CIMValue& a, const CIMValue& b) { return !a.equal(b); }

}  // namespace Pegasus

#endif
