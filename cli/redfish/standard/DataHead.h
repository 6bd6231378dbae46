// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_STANDARD_DATAHEAD_H
#define KEMFFDC_REDFISH_STANDARD_DATAHEAD_H

#include <string>

#include "cli/http/Transport.h"

namespace Kemffdc::Redfish {

// What the headers of an answer say of the data behind it. Empty where they do not say.
struct DataHead {
    std::string contentType;  // without parameters
    std::string fileName;     // of Content-Disposition (RFC 6266), one plain component
    std::string sha256;       // of Repr-Digest (RFC 9530) or Digest (RFC 3230), hexadecimal
};

// Of an answer to HEAD; one that is no success says nothing.
DataHead ReadHead(const Answer& answer);

}  // namespace Kemffdc::Redfish

#endif
