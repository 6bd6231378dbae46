// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_CIMVALUE_H
#define PEGASUS_CIMVALUE_H

#include <Pegasus/Common/Array.h>
#include <Pegasus/Common/CIMObjectPath.h>
#include <Pegasus/Common/CIMType.h>
#include <Pegasus/Common/String.h>

#include <memory>
#include <variant>

namespace Pegasus {

// A value of one CIM type or an array of it, or a null of that type. Copies share their content,
// which never changes.
//
// Mind literals: CIMValue("text") is the BOOLEAN true, and CIMValue(0) is a sint32. Write
// CIMValue(String("text")) and CIMValue(Uint32(0)). Values of all types come with answers; these
// constructors are of those that a program makes.
class CIMValue {
public:
    // A null boolean.
    CIMValue() = default;
    // A null of the type.
    CIMValue(CIMType type, Boolean isArray) : m_type(type), m_isArray(isArray) {}
    CIMValue(Boolean value);
    CIMValue(Uint16 value);
    CIMValue(Uint32 value);
    CIMValue(Sint32 value);
    CIMValue(const String& value);
    CIMValue(const CIMObjectPath& value);
    CIMValue(const Array<String>& value);

    CIMType getType() const { return m_type; }
    Boolean isArray() const { return m_isArray; }
    Boolean isNull() const { return !m_content; }

    // Throws TypeMismatchException for anything but an array of strings; a null leaves `value` as
    // it was.
    void get(Array<String>& value) const;

    // Type, being an array, being null and content must all agree.
    Boolean equal(const CIMValue& other) const;

    // Nulls are empty; booleans TRUE and FALSE; reals as printf's "%.16e"; each element of an array
    // is followed by one blank, the last one too.
    String toString() const;

private:
    friend struct ValueContent;
    // The text that toString() gives, of each element for an array; a path that can be sent on.
    using Content = std::variant<String, Array<String>, std::shared_ptr<const CIMObjectPath>>;

    CIMValue(CIMType type, Boolean isArray, Content content);

    CIMType m_type = CIMTYPE_BOOLEAN;
    Boolean m_isArray = false;
    std::shared_ptr<const Content> m_content;
};

inline bool operator==(const CIMValue& a, const CIMValue& b) { return a.equal(b); }
inline bool operator!=(const CIMValue& a, const CIMValue& b) { return !a.equal(b); }

}  // namespace Pegasus

#endif
