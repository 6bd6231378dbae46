// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_CONFIG_H
#define PEGASUS_CONFIG_H

#include <cstdint>

#if !defined(PEGASUS_PLATFORM_LINUX_X86_64_GNU) && !defined(PEGASUS_PLATFORM_LINUX_AARCH64_GNU)
#error \
    "Define the platform, for example PEGASUS_PLATFORM_LINUX_X86_64_GNU, before the first include"
#endif

// The names and behaviour of the OpenPegasus C++ client interface, as far as the CIM channel needs
// them. Code written against these headers compiles against an installed OpenPegasus unchanged.
namespace Pegasus {

using Boolean = bool;
using Uint16 = std::uint16_t;
using Uint32 = std::uint32_t;
using Sint32 = std::int32_t;

// What searches return that found nothing.
constexpr Uint32 PEG_NOT_FOUND = 0xFFFFFFFFU;

}  // namespace Pegasus

#endif
