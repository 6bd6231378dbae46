// SPDX-License-Identifier: Apache-2.0
//
// A module of a version that nobody speaks.
#include "../../platform/ipmi/module.h"

namespace {

constexpr varnex_ipmi_module kModule = {
    VARNEX_IPMI_MODULE_VERSION + 1, "", "", nullptr, nullptr, nullptr, nullptr, nullptr};

}  // namespace

extern "C" const varnex_ipmi_module* varnex_ipmi_module_get(void) { return &kModule; }
