// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_CIMTYPE_H
#define PEGASUS_CIMTYPE_H

#include <Pegasus/Common/Config.h>

namespace Pegasus {

enum CIMType : Uint32 {
    CIMTYPE_BOOLEAN,
    CIMTYPE_UINT8,
    CIMTYPE_SINT8,
    CIMTYPE_UINT16,
    CIMTYPE_SINT16,
    CIMTYPE_UINT32,
    CIMTYPE_SINT32,
    CIMTYPE_UINT64,
    CIMTYPE_SINT64,
    CIMTYPE_REAL32,
    CIMTYPE_REAL64,
    CIMTYPE_CHAR16,
    CIMTYPE_STRING,
    CIMTYPE_DATETIME,
    CIMTYPE_REFERENCE
};

// "boolean", "uint8" ... "reference"
const char* cimTypeToString(CIMType type);

}  // namespace Pegasus

#endif
