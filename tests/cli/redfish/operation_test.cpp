// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Operation.h"

#include <gtest/gtest.h>

namespace Kemffdc::Redfish {
namespace {

struct Row {
    Operation asked;
    bool toStore;
    Offer offer;
    Operation operation;
    const char* limit;
    const char* because;
};

const Row kRows[] = {
    {Operation::kAuto, false, {"", ""}, Operation::kOem, "", "the BMC's own export comes first"},
    {Operation::kAuto, false, {"no oem", ""}, Operation::kStandard, "", "then the standard's"},
    {Operation::kAuto, false, {"no oem", "no std"}, Operation::kTree, "", "a tree is always there"},
    {Operation::kAuto, true, {"no oem", ""}, Operation::kOem, "no oem", "others send no archives"},
    {Operation::kAuto, true, {"", "no std"}, Operation::kOem, "", "the OEM's does"},
    {Operation::kOem, false, {"no oem", ""}, Operation::kOem, "no oem", "what is named is taken"},
    {Operation::kStandard, false, {"", "no std"}, Operation::kStandard, "no std", "the same"},
    {Operation::kStandard, false, {"", ""}, Operation::kStandard, "", "also where OEM is there"},
    {Operation::kTree, false, {"", ""}, Operation::kTree, "", "also where an archive is there"},
};

TEST(RedfishOperation, TheFirstThatTheBmcOffersUnlessOneIsNamed) {
    for (const Row& row : kRows) {
        const Chosen chosen = Choose(row.asked, row.toStore, row.offer);
        EXPECT_EQ(NameOf(chosen.operation), std::string(NameOf(row.operation))) << row.because;
        EXPECT_EQ(chosen.limit, row.limit) << row.because;
        EXPECT_FALSE(chosen.why.empty()) << row.because;
    }
}

TEST(RedfishOperation, EachIsFoundByItsName) {
    for (const Operation one : {Operation::kOem, Operation::kStandard, Operation::kTree}) {
        EXPECT_EQ(OperationNamed(NameOf(one)), one);
    }
    EXPECT_EQ(OperationNamed("export"), Operation::kAuto);
    EXPECT_EQ(OperationNamed(""), Operation::kAuto);
}

}  // namespace
}  // namespace Kemffdc::Redfish
