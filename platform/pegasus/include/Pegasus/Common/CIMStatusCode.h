// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_CIMSTATUSCODE_H
#define PEGASUS_CIMSTATUSCODE_H

#include <Pegasus/Common/Config.h>

namespace Pegasus {

// DSP0200, as far as a program asks for one. The others come through as they are, and numbers that
// are none too.
enum CIMStatusCode : Uint32 {
    CIM_ERR_SUCCESS = 0,
    CIM_ERR_FAILED = 1,
    CIM_ERR_INVALID_NAMESPACE = 3,
};

// "CIM_ERR_NOT_SUPPORTED" for 7 and so on; a text with the number for unknown ones.
class String;
String cimStatusCodeToString(CIMStatusCode code);

}  // namespace Pegasus

#endif
