// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PEGASUS_VALUECONTENT_H
#define VARNEX_PEGASUS_VALUECONTENT_H

#include <Pegasus/Common/CIMValue.h>

namespace Pegasus {

// The way for the library's own code to a value of any type: it is the text that toString() gives,
// or the texts of an array's elements.
struct ValueContent {
    static CIMValue Make(CIMType type, const String& text) { return {type, false, text}; }
    static CIMValue Make(CIMType type, const Array<String>& texts) { return {type, true, texts}; }

    // `value` is not null.
    static const CIMValue::Content& Of(const CIMValue& value) { return *value.m_content; }
};

}  // namespace Pegasus

#endif
