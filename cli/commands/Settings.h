// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_COMMANDS_SETTINGS_H
#define KEMFFDC_COMMANDS_SETTINGS_H

#include <boost/json/array.hpp>
#include <cstddef>
#include <iosfwd>
#include <vector>

#include "cli/Options.h"

namespace Kemffdc {

// A line for each setting that holds: its name, its value, who has said so. No password, and of a
// password command the program alone. Lines that were longer than `columns` are broken.
void WriteSettings(const std::vector<HeldSetting>& held, std::size_t columns, std::ostream& out);
// Those that were left out; nothing where there are none.
void WriteIgnored(const std::vector<HeldSetting>& held, std::ostream& out);

// Either of them in JSON.
boost::json::array SettingObjects(const std::vector<HeldSetting>& held, bool ignored);

}  // namespace Kemffdc

#endif
