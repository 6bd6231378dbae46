// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CIM_XML_H
#define KEMFFDC_CIM_XML_H

#include <string>
#include <vector>

namespace Kemffdc::Cim {

// The little CIM-XML (DMTF DSP0200, DSP0201) that the preflight speaks.

// The value of the header CIMObject: a namespace's bytes, all but letters and digits as %XX.
std::string CimObjectHeader(const std::string& nameSpace);

// The document that asks for the objects of a class. The names are ours: nothing is escaped.
std::string EnumerationRequest(const std::string& nameSpace, const std::string& className);

// What an answer to it says. As the library reads it: what the library takes is not unreadable
// here, and what it would refuse for its head is.
struct Enumeration {
    std::string unreadable;  // why it is no CIM-XML answer; empty: it is one
    bool failed = false;     // with a CIM error
    int errorCode = 0;
    std::string errorText;
    // Each object's DataCollectionType as the library compares it; empty where it has none.
    std::vector<std::string> types;
};

// Of documents that hold more than the library's client takes, it says so.
Enumeration ReadEnumeration(std::string document);

}  // namespace Kemffdc::Cim

#endif
