// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CIM_PREFLIGHT_H
#define KEMFFDC_CIM_PREFLIGHT_H

#include <string>

#include "cli/Options.h"
#include "cli/http/Transport.h"
#include "cli/report/Report.h"
#include "cli/terminal/Secret.h"

namespace Kemffdc::Cim {

inline constexpr char kServiceClass[] = "ZOR_FFDCService";

// What a CIM server answered before anything was asked of the library.
struct Preflight {
    Stage stage = Stage::kDone;  // where it failed
    std::string reason;          // what was wrong and what to do; empty where nothing was
    Cause cause = Cause::kUnnamed;
    std::string limit;  // why nothing can be exported, where that is sure
    BmcFacts facts;
};

// The namespace that the library will use.
std::string NamespaceOf(const Options& options);

// Resolves, connects, agrees on TLS, and enumerates the service object, first without credentials
// as the library does, then with them. `look`: counts the data objects too. Takes at most `seconds`
// for each of the two or three requests. The library's Connect would check none of this, and takes
// half a minute and more where nobody answers. With a CA file the certificate is checked before the
// password is sent.
Preflight RunPreflight(const Options& options, const Trust& trust, const Secret& password,
                       int seconds, bool look);

}  // namespace Kemffdc::Cim

#endif
