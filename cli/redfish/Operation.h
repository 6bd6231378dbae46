// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_OPERATION_H
#define KEMFFDC_REDFISH_OPERATION_H

#include <string>

namespace Kemffdc::Redfish {

// How service data is got out of a BMC over Redfish.
enum class Operation {
    kAuto,      // the first of the others that the BMC offers
    kOem,       // the OEM's export, by the library
    kStandard,  // LogService.CollectDiagnosticData (DSP0268, schema LogService)
    kTree,      // everything that can be read: no archive of the BMC's own making
};

// As --operation, JSON and history write it.
const char* NameOf(Operation operation);

// kAuto for a text that names none.
Operation OperationNamed(const std::string& name);

// What is known of a BMC. Whole sentences, fit for display; empty: it offers it, or may do so.
struct Offer {
    std::string noOem;
    std::string noStandard;
};

struct Chosen {
    Operation operation = Operation::kOem;  // never kAuto
    std::string why;    // fit for display, follows "... is taken: "; without an end mark
    std::string limit;  // why nothing can be gathered by it, a whole sentence; empty: it can
};

// The one place where it is decided. `asked`: by --operation. `toStore`: the BMC itself is to send
// the archive somewhere (--export-uri), which the OEM's export alone can. Pure.
Chosen Choose(Operation asked, bool toStore, const Offer& offer);

}  // namespace Kemffdc::Redfish

#endif
