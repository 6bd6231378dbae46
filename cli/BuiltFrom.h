// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_BUILTFROM_H
#define KEMFFDC_BUILTFROM_H

namespace Kemffdc {

// "commit 0123456789ab"; where the sources came without it, the package that they came in. Of the
// program alone: its source is made at each build, and nothing else is to be linked again for it.
extern const char kBuiltFrom[];

}  // namespace Kemffdc

#endif
