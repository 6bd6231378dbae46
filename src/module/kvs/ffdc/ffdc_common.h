// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_FFDC_FFDC_COMMON_H
#define VARNEX_FFDC_FFDC_COMMON_H

#include <string>

// Vocabulary that the modules of the tool set share; this module's operations read none of it.
// Every source that includes this header has its own copies, made when the library is loaded.
namespace Varnex {

static const std::string kJobPropertyNames[] = {"ConCreteJob State", "Percent Complete",
                                                "Completion State", "Completion Record"};

static const std::string kBmcKinds[] = {"KEM1", "KEM2", "KTC", "AMI"};

}  // namespace Varnex

#endif
