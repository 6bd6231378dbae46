// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PEGASUS_VALUETEXT_H
#define VARNEX_PEGASUS_VALUETEXT_H

#include <Pegasus/Common/CIMType.h>

#include <optional>
#include <string>

namespace Pegasus::Internal {

// The text that a VALUE element holds, as CIMValue::toString() gives it: "0x1F" becomes "31". None
// where it is no value of this type. Not for references.
std::optional<std::string> ValueText(CIMType type, const std::string& text);

}  // namespace Pegasus::Internal

#endif
