// SPDX-License-Identifier: Apache-2.0
#include "cli/ipmi/CompletionCodes.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace Kemffdc::Ipmi {
namespace {

struct Row {
    std::uint8_t code;
    Cause cause;
    const char* meaning;
};

constexpr Row kRows[] = {
    {0x00, Cause::kUnnamed, "done"},
    {0xC0, Cause::kBusy, "it is busy"},
    {0xC1, Cause::kUnsupported, "it does not know the command"},
    {0xC2, Cause::kUnsupported, "it does not know the command for this unit"},
    {0xC3, Cause::kBmcFault, "it ran out of time over the command"},
    {0xC4, Cause::kBmcFault, "it has no room left for it"},
    {0xC5, Cause::kBmcFault, "a reservation has ended or is none"},
    {0xC6, Cause::kBmcFault, "the request is cut"},
    {0xC7, Cause::kUnsupported, "the length of the request is wrong"},
    {0xC8, Cause::kUnsupported, "a field of the request is too long"},
    {0xC9, Cause::kUnsupported, "a parameter is out of range"},
    {0xCA, Cause::kBmcFault, "it cannot return that many bytes"},
    {0xCB, Cause::kUnsupported, "what was asked for is not there"},
    {0xCC, Cause::kUnsupported, "a field of the request is invalid"},
    {0xCD, Cause::kUnsupported, "the command is not allowed for this kind of record"},
    {0xCE, Cause::kBmcFault, "it cannot give an answer"},
    {0xCF, Cause::kBmcFault, "the request is a repetition"},
    {0xD0, Cause::kStarting, "its repository of sensors is being updated"},
    {0xD1, Cause::kStarting, "its firmware is being updated"},
    {0xD2, Cause::kStarting, "it is still starting"},
    {0xD3, Cause::kBmcFault, "what the request is for cannot be reached"},
    {0xD4, Cause::kNotPermitted, "the privilege of the user is too low"},
    {0xD5, Cause::kBmcFault, "it cannot do that in its present state"},
    {0xD6, Cause::kUnsupported, "that part of the command is switched off"},
    {0xFF, Cause::kBmcFault, "an error without a name"},
};

// Of the ranges that manufacturers and single commands fill.
constexpr Row kOfManufacturer = {0x01, Cause::kBmcFault, "a code of its manufacturer's own"};
constexpr Row kOfCommand = {0x80, Cause::kBmcFault, "a code that belongs to this command"};
constexpr Row kReserved = {0xD7, Cause::kBmcFault, "a code without a meaning"};

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
