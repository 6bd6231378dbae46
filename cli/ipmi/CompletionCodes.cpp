// SPDX-License-Identifier: Apache-2.0
#include "cli/ipmi/CompletionCodes.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace Kemffdc::Ipmi {
namespace {

struct Row {
    std::uint8_t code;
    const char* meaning;
    Cause cause;
};

constexpr Row kRows[] = {
    {0x00, "done", Cause::kUnnamed},
    {0xC0, "it is busy", Cause::kBusy},
    {0xC1, "it does not know the command", Cause::kUnsupported},
    {0xC2, "it does not know the command for this unit", Cause::kUnsupported},
    {0xC3, "it ran out of time over the command", Cause::kBmcFault},
    {0xC4, "it has no room left for it", Cause::kBmcFault},
    {0xC5, "a reservation has ended or is none", Cause::kBmcFault},
    {0xC6, "the request is cut", Cause::kBmcFault},
    {0xC7, "the length of the request is wrong", Cause::kUnsupported},
    {0xC8, "a field of the request is too long", Cause::kUnsupported},
    {0xC9, "a parameter is out of range", Cause::kUnsupported},
    {0xCA, "it cannot return that many bytes", Cause::kBmcFault},
    {0xCB, "what was asked for is not there", Cause::kUnsupported},
    {0xCC, "a field of the request is invalid", Cause::kUnsupported},
    {0xCD, "the command is not allowed for this kind of record", Cause::kUnsupported},
    {0xCE, "it cannot give an answer", Cause::kBmcFault},
    {0xCF, "the request is a repetition", Cause::kBmcFault},
    {0xD0, "its repository of sensors is being updated", Cause::kStarting},
    {0xD1, "its firmware is being updated", Cause::kStarting},
    {0xD2, "it is still starting", Cause::kStarting},
    {0xD3, "what the request is for cannot be reached", Cause::kBmcFault},
    {0xD4, "the privilege of the user is too low", Cause::kNotPermitted},
    {0xD5, "it cannot do that in its present state", Cause::kBmcFault},
    {0xD6, "that part of the command is switched off", Cause::kUnsupported},
    {0xFF, "an error without a name", Cause::kBmcFault},
};

// Of the ranges that manufacturers and single commands fill.
constexpr Row kOfManufacturer = {0x01, "a code of its manufacturer's own", Cause::kBmcFault};
constexpr Row kOfCommand = {0x80, "a code that belongs to this command", Cause::kBmcFault};
constexpr Row kReserved = {0xD7, "a code without a meaning", Cause::kBmcFault};

const Row& RowOf(std::uint8_t code) {
    const Row* found = std::find_if(std::begin(kRows), std::end(kRows),
                                    [code](const Row& row) { return row.code == code; });
    if (found != std::end(kRows)) return *found;
    if (code <= 0x7E) return kOfManufacturer;
    return code >= 0x80 && code <= 0xBE ? kOfCommand : kReserved;
}

}  // namespace

std::string MeaningOf(std::uint8_t completionCode) { return RowOf(completionCode).meaning; }

std::string WordsFor(std::uint8_t completionCode) {
    char number[24];
    (void)std::snprintf(number, sizeof number, "completion code %02Xh", unsigned{completionCode});
    return number + (": " + MeaningOf(completionCode));
}

Cause CauseOf(std::uint8_t completionCode) { return RowOf(completionCode).cause; }

}  // namespace Kemffdc::Ipmi
