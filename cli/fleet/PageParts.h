// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_PAGEPARTS_H
#define KEMFFDC_FLEET_PAGEPARTS_H

namespace Kemffdc::Fleet {

// The files below cli/fleet/page as they were when the tool was built.
extern const char kPageHtml[];  // with {{places}} to fill
extern const char kPageCss[];
extern const char kPageJs[];

}  // namespace Kemffdc::Fleet

#endif
