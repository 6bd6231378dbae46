// SPDX-License-Identifier: Apache-2.0
#include <Pegasus/Common/CIMValue.h>

#include <array>
#include <charconv>

#include "Text.h"

namespace Pegasus {

struct CIMValue::Content {
    Content() = default;
    Content(const Content&) = delete;
    Content& operator=(const Content&) = delete;
    virtual ~Content() = default;

    virtual String Text() const = 0;
    // `other` holds a value of the same type.
    virtual bool Same(const Content& other) const = 0;
};

namespace {

template <CIMType type>
struct Scalar {
    static constexpr CIMType kType = type;
    static constexpr bool kIsArray = false;
};

template <class T>
struct Traits;
template <>
struct Traits<Boolean> : Scalar<CIMTYPE_BOOLEAN> {};
template <>
struct Traits<Uint8> : Scalar<CIMTYPE_UINT8> {};
template <>
struct Traits<Sint8> : Scalar<CIMTYPE_SINT8> {};
template <>
struct Traits<Uint16> : Scalar<CIMTYPE_UINT16> {};
template <>
struct Traits<Sint16> : Scalar<CIMTYPE_SINT16> {};
template <>
struct Traits<Uint32> : Scalar<CIMTYPE_UINT32> {};
template <>
struct Traits<Sint32> : Scalar<CIMTYPE_SINT32> {};
template <>
struct Traits<Uint64> : Scalar<CIMTYPE_UINT64> {};
template <>
struct Traits<Sint64> : Scalar<CIMTYPE_SINT64> {};
template <>
struct Traits<Real32> : Scalar<CIMTYPE_REAL32> {};
template <>
struct Traits<Real64> : Scalar<CIMTYPE_REAL64> {};
template <>
struct Traits<Char16> : Scalar<CIMTYPE_CHAR16> {};
template <>
struct Traits<String> : Scalar<CIMTYPE_STRING> {};
template <>
struct Traits<CIMDateTime> : Scalar<CIMTYPE_DATETIME> {};
template <>
struct Traits<CIMObjectPath> : Scalar<CIMTYPE_REFERENCE> {};

template <class T>
struct Traits<Array<T>> {
    static constexpr CIMType kType = Traits<T>::kType;
    static constexpr bool kIsArray = true;
};

template <class T>
String TextOf(T number) {
    return String(std::to_string(number).c_str());
}

String TextOf(bool value) { return {value ? "TRUE" : "FALSE"}; }

// As printf's "%.16e" writes in the C locale, whatever the locale is.
String TextOf(double value) {
    std::array<char, 40> text;
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value,
                                   std::chars_format::scientific, 16);
    return {text.data(), static_cast<Uint32>(end.ptr - text.data())};
}

String TextOf(float value) { return TextOf(static_cast<double>(value)); }
String TextOf(const Char16& value) { return StringUnits::Make(std::u16string(1, value)); }
String TextOf(const String& value) { return value; }
String TextOf(const CIMDateTime& value) { return value.toString(); }
String TextOf(const CIMObjectPath& value) { return value.toString(); }

template <class T>
String TextOf(const Array<T>& values) {
    std::u16string text;
    for (Uint32 i = 0; i < values.size(); ++i) text += StringUnits::Of(TextOf(values[i])) + u' ';
    return StringUnits::Make(std::move(text));
}

}  // namespace

template <class T>
struct CIMValue::ContentOf final : CIMValue::Content {
    explicit ContentOf(const T& held) : value(held) {}

    String Text() const override { return TextOf(value); }
    bool Same(const Content& other) const override {
        return value == static_cast<const ContentOf&>(other).value;
    }

    T value;
};

CIMValue::CIMValue() = default;

CIMValue::CIMValue(CIMType type, Boolean isArray, Uint32) : m_type(type), m_isArray(isArray) {}

template <class T>
void CIMValue::Set(const T& value) {
    m_type = Traits<T>::kType;
    m_isArray = Traits<T>::kIsArray;
    m_content = std::make_shared<const ContentOf<T>>(value);
}

CIMValue::CIMValue(Boolean value) { Set(value); }
CIMValue::CIMValue(Uint8 value) { Set(value); }
CIMValue::CIMValue(Sint8 value) { Set(value); }
CIMValue::CIMValue(Uint16 value) { Set(value); }
CIMValue::CIMValue(Sint16 value) { Set(value); }
CIMValue::CIMValue(Uint32 value) { Set(value); }
CIMValue::CIMValue(Sint32 value) { Set(value); }
CIMValue::CIMValue(Uint64 value) { Set(value); }
CIMValue::CIMValue(Sint64 value) { Set(value); }
CIMValue::CIMValue(Real32 value) { Set(value); }
CIMValue::CIMValue(Real64 value) { Set(value); }
CIMValue::CIMValue(const Char16& value) { Set(value); }
CIMValue::CIMValue(const String& value) { Set(value); }
CIMValue::CIMValue(const CIMDateTime& value) { Set(value); }
CIMValue::CIMValue(const CIMObjectPath& value) { Set(value); }
CIMValue::CIMValue(const Array<Boolean>& value) { Set(value); }
CIMValue::CIMValue(const Array<Uint8>& value) { Set(value); }
CIMValue::CIMValue(const Array<Sint8>& value) { Set(value); }
CIMValue::CIMValue(const Array<Uint16>& value) { Set(value); }
CIMValue::CIMValue(const Array<Sint16>& value) { Set(value); }
CIMValue::CIMValue(const Array<Uint32>& value) { Set(value); }
CIMValue::CIMValue(const Array<Sint32>& value) { Set(value); }
CIMValue::CIMValue(const Array<Uint64>& value) { Set(value); }
CIMValue::CIMValue(const Array<Sint64>& value) { Set(value); }
CIMValue::CIMValue(const Array<Real32>& value) { Set(value); }
CIMValue::CIMValue(const Array<Real64>& value) { Set(value); }
CIMValue::CIMValue(const Array<Char16>& value) { Set(value); }
CIMValue::CIMValue(const Array<String>& value) { Set(value); }
CIMValue::CIMValue(const Array<CIMDateTime>& value) { Set(value); }
CIMValue::CIMValue(const Array<CIMObjectPath>& value) { Set(value); }

template <class T>
void CIMValue::get(T& value) const {
    if (m_type != Traits<T>::kType || m_isArray != Traits<T>::kIsArray) {
        throw TypeMismatchException();
    }
    if (!isNull()) value = static_cast<const ContentOf<T>&>(*m_content).value;
}

template void CIMValue::get(Boolean&) const;
template void CIMValue::get(Uint8&) const;
template void CIMValue::get(Sint8&) const;
template void CIMValue::get(Uint16&) const;
template void CIMValue::get(Sint16&) const;
template void CIMValue::get(Uint32&) const;
template void CIMValue::get(Sint32&) const;
template void CIMValue::get(Uint64&) const;
template void CIMValue::get(Sint64&) const;
template void CIMValue::get(Real32&) const;
template void CIMValue::get(Real64&) const;
template void CIMValue::get(Char16&) const;
template void CIMValue::get(String&) const;
template void CIMValue::get(CIMDateTime&) const;
template void CIMValue::get(CIMObjectPath&) const;
template void CIMValue::get(Array<Boolean>&) const;
template void CIMValue::get(Array<Uint8>&) const;
template void CIMValue::get(Array<Sint8>&) const;
template void CIMValue::get(Array<Uint16>&) const;
template void CIMValue::get(Array<Sint16>&) const;
template void CIMValue::get(Array<Uint32>&) const;
template void CIMValue::get(Array<Sint32>&) const;
template void CIMValue::get(Array<Uint64>&) const;
template void CIMValue::get(Array<Sint64>&) const;
template void CIMValue::get(Array<Real32>&) const;
template void CIMValue::get(Array<Real64>&) const;
template void CIMValue::get(Array<Char16>&) const;
template void CIMValue::get(Array<String>&) const;
template void CIMValue::get(Array<CIMDateTime>&) const;
template void CIMValue::get(Array<CIMObjectPath>&) const;

Boolean CIMValue::equal(const CIMValue& other) const {
    if (m_type != other.m_type || m_isArray != other.m_isArray || isNull() != other.isNull()) {
        return false;
    }
    return isNull() || m_content == other.m_content || m_content->Same(*other.m_content);
}

String CIMValue::toString() const { return isNull() ? String() : m_content->Text(); }

}  // namespace Pegasus
