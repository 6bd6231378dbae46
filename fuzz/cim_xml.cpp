// SPDX-License-Identifier: Apache-2.0
//
// The CIM-XML of a server's answer, of any bytes: the client's reader and the tool's preflight.
// What the client takes the tool does not refuse, and both see the same.
#include <Pegasus/Common/Exception.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <string>

#include "XmlReader.h"
#include "cli/cim/Xml.h"

namespace {

using namespace Pegasus;

std::string Utf8(const String& text) { return {static_cast<const char*>(text.getCString())}; }

// As the library's channel uses it.
std::string TypeOf(CIMInstance instance) {
    (void)Utf8(instance.getPath().toString());
    for (Uint32 i = 0; i < instance.getPropertyCount(); ++i) {
        (void)Utf8(instance.getProperty(i).getValue().toString());
    }
    const Uint32 place = instance.findProperty("DataCollectionType");
    if (place == PEG_NOT_FOUND) return "";
    const std::string text = Utf8(instance.getProperty(place).getValue().toString());
    const std::size_t first = text.find_first_not_of(" \f\n\r\t\v");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \f\n\r\t\v") + 1 - first);
}

void Compare(const Internal::EnumerateInstancesAnswer& answer,
             const Kemffdc::Cim::Enumeration& found) {
    if (!found.unreadable.empty() || found.failed != answer.error.has_value()) std::abort();
    if (answer.error) {
        if (static_cast<int>(answer.error->code) != found.errorCode) std::abort();
        return;
    }
    if (found.types.size() != answer.instances.size()) std::abort();
    for (Uint32 i = 0; i < answer.instances.size(); ++i) {
        const bool never = TypeOf(answer.instances[i]) == "4";
        if (never != (found.types[i] == "4")) std::abort();
    }
}

void ReadEnumeration(const std::string& document) {
    const Kemffdc::Cim::Enumeration found = Kemffdc::Cim::ReadEnumeration(document);
    std::string text = document;
    try {
        Compare(Internal::ReadEnumerateInstances(text, 1), found);
    } catch (const Exception&) {  // refused; anything else ends the run
    }
}

void ReadMethod(std::string document) {
    try {
        const auto answer = Internal::ReadInvokeMethod(document, 1);
        (void)Utf8(answer.returnValue.toString());
        for (Uint32 i = 0; i < answer.outParameters.size(); ++i) {
            (void)Utf8(answer.outParameters[i].getValue().toString());
        }
    } catch (const Exception&) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string document(reinterpret_cast<const char*>(data), size);
    ReadEnumeration(document);
    ReadMethod(document);
    return 0;
}
