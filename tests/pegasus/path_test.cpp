// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "support.h"

using namespace Pegasus;

namespace {

Array<CIMKeyBinding> Keys(std::initializer_list<CIMKeyBinding> keys) {
    Array<CIMKeyBinding> array;
    for (const CIMKeyBinding& key : keys) array.append(key);
    return array;
}

TEST(PegasusCIMObjectPathToString, KeysAreSortedWithoutCaseAndQuotedByType) {
    const CIMObjectPath other("", "root/cimv2", "ZOR_Y",
                              Keys({CIMKeyBinding("N", "v", CIMKeyBinding::STRING)}));
    const CIMObjectPath path(
        "", CIMNamespaceName(), "ZOR_X",
        Keys({CIMKeyBinding("Zeta", "z \"q\" \\ &", CIMKeyBinding::STRING),
              CIMKeyBinding("Ref", other), CIMKeyBinding("alpha", "5", CIMKeyBinding::NUMERIC),
              CIMKeyBinding("Mid", "TRUE", CIMKeyBinding::BOOLEAN)}));

    EXPECT_EQ(R"(ZOR_X.alpha=5,Mid=TRUE,Ref="root/cimv2:ZOR_Y.N=\"v\"",Zeta="z \"q\" \\ &")",
              Utf8(path.toString()));
    EXPECT_STREQ("alpha", path.getKeyBindings()[0].getName().getString().getCString());
}

TEST(PegasusCIMObjectPathToString, HostNamespaceAndKeysShowOnlyWhereTheyAre) {
    const Array<CIMKeyBinding> keys = Keys({CIMKeyBinding("B", "5", CIMKeyBinding::NUMERIC),
                                            CIMKeyBinding("A", "q\"u", CIMKeyBinding::STRING)});
    struct Row {
        CIMObjectPath path;
        const char* text;
    };
    const Row rows[] = {
        {CIMObjectPath("h:1", "root/cimv2", "ZOR_X", keys),
         R"(//h:1/root/cimv2:ZOR_X.A="q\"u",B=5)"},
        {CIMObjectPath("", "root/cimv2", "ZOR_X"), "root/cimv2:ZOR_X"},
        {CIMObjectPath("", CIMNamespaceName(), "ZOR_X"), "ZOR_X"},
        {CIMObjectPath(), ""},
    };
    for (const Row& row : rows) EXPECT_EQ(row.text, Utf8(row.path.toString()));
}

TEST(PegasusCIMKeyBinding, AReferenceIsGivenAsAPathAndNotAsItsText) {
    EXPECT_EQ("TypeMismatchException: type mismatch",
              Thrown([] { CIMKeyBinding key("a", "C.k=1", CIMKeyBinding::REFERENCE); }));
}

}  // namespace
