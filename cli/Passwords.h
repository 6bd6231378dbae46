// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_PASSWORDS_H
#define KEMFFDC_PASSWORDS_H

#include <optional>

#include "cli/Options.h"
#include "cli/terminal/Secret.h"

namespace Kemffdc {

// Where the passwords of a run on one BMC come from, as its options say; none where it needs none.
std::optional<SecretSource> PasswordSource(const Options& options);
std::optional<SecretSource> ExportPasswordSource(const Options& options);  // of the file store

}  // namespace Kemffdc

#endif
