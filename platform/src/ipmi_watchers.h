// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_IPMI_WATCHERS_H
#define VARNEX_PLATFORM_SRC_IPMI_WATCHERS_H

#include "IpmiEvents.h"

// What the IPMI services tell the watchers of IpmiEvents.h. Never throws.
namespace ipmi_watchers {

void Connected(const Varnex::IpmiConnection& connection) noexcept;
void Exchanged(const Varnex::IpmiExchange& exchange) noexcept;
void Disconnected(bool inBand) noexcept;
void AccountLookedUp(const Varnex::AccountLookupResult& account) noexcept;
void UsbLanLookedUp(const Varnex::UsbLanLookupResult& usbLan) noexcept;

}  // namespace ipmi_watchers

#endif
