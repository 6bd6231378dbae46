// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakeMemory.h"

#include <new>

namespace {

bool g_isShort = false;
int g_allowed = 0;

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (g_isShort && g_allowed-- <= 0) return nullptr;
    try {
        return ::operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

namespace fakes {

FakeMemory::FakeMemory() { g_isShort = true; }

FakeMemory::~FakeMemory() {
    g_isShort = false;
    g_allowed = 0;
}

void FakeMemory::AllowFirst(int count) { g_allowed = count; }

}  // namespace fakes
