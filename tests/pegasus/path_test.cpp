// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstring>

#include "support.h"

using namespace Pegasus;

namespace {

Array<CIMKeyBinding> Keys(std::initializer_list<CIMKeyBinding> keys) {
    Array<CIMKeyBinding> array;
    for (const CIMKeyBinding& key : keys) array.append(key);
    return array;
}

TEST(PegasusCIMObjectPathToString, KeysAreSortedWithoutCaseAndQuotedByType) {
    const CIMObjectPath path(
        "", CIMNamespaceName(), "ZOR_X",
        Keys({CIMKeyBinding("Zeta", "z \"q\" \\ &", CIMKeyBinding::STRING),
              CIMKeyBinding("Ref", "root/cimv2:ZOR_Y.N=\"v\"", CIMKeyBinding::REFERENCE),
              CIMKeyBinding("alpha", "5", CIMKeyBinding::NUMERIC),
              CIMKeyBinding("Mid", "TRUE", CIMKeyBinding::BOOLEAN)}));

    EXPECT_EQ(R"(ZOR_X.alpha=5,Mid=TRUE,Ref="root/cimv2:ZOR_Y.N=\"v\"",Zeta="z \"q\" \\ &")",
              Utf8(path.toString()));
    EXPECT_STREQ("alpha", path.getKeyBindings()[0].getName().getString().getCString());
}

TEST(PegasusCIMObjectPathToString, HostNamespaceAndKeysShowOnlyWhereTheyAre) {
    const Array<CIMKeyBinding> keys =
        Keys({CIMKeyBinding("B", CIMValue(Uint32(5))), CIMKeyBinding("C", CIMValue(true)),
              CIMKeyBinding("A", CIMValue(String("q\"u")))});
    struct Row {
        CIMObjectPath path;
        const char* text;
    };
    const Row rows[] = {
        {CIMObjectPath("h:1", "root/cimv2", "ZOR_X", keys),
         R"(//h:1/root/cimv2:ZOR_X.A="q\"u",B=5,C=TRUE)"},
        {CIMObjectPath("", "root/cimv2", "ZOR_X"), "root/cimv2:ZOR_X"},
        {CIMObjectPath("", CIMNamespaceName(), "ZOR_X"), "ZOR_X"},
        {CIMObjectPath(), ""},
    };
    for (const Row& row : rows) EXPECT_EQ(row.text, Utf8(row.path.toString()));
}

TEST(PegasusCIMObjectPath, TheTextReadsBackIntoThePath) {
    for (const char* text :
         {R"(//h:1/root/cimv2:ZOR_X.A="q\"u",B=5,C=TRUE)", "root/cimv2:ZOR_X", "ZOR_X", "",
          R"(ZOR_X.alpha=-5,Mid=false,Ref="root/cimv2:ZOR_Y.N=\"v\"",Zeta="z, \"q\" \\ =. &")"}) {
        EXPECT_EQ(text, Utf8(CIMObjectPath(text).toString()));
    }
    const CIMObjectPath path(R"(ZOR_X.z="C.k=\"v\"",a="b",N=7,t=True)");
    EXPECT_EQ(CIMKeyBinding::STRING, path.getKeyBindings()[0].getType());
    EXPECT_EQ(CIMKeyBinding::NUMERIC, path.getKeyBindings()[1].getType());
    EXPECT_EQ(CIMKeyBinding::BOOLEAN, path.getKeyBindings()[2].getType());
    EXPECT_EQ(CIMKeyBinding::REFERENCE, path.getKeyBindings()[3].getType());
}

TEST(PegasusCIMObjectPath, TextThatIsNoPathThrows) {
    const std::string start = "MalformedObjectNameException: malformed object name: ";
    for (const char* bad : {"ZOR_X.a", "ZOR_X.", "ZOR_X.a=\"b", "ZOR_X.a=b", "ZOR_X.a=", "1X",
                            "ZOR_X.a=1,", "ZOR_X.a=\"b\"c", "//h", "root/cimv2:", "a b"}) {
        const std::string thrown = Thrown([&] { CIMObjectPath path{String(bad)}; });
        EXPECT_EQ(start + bad + ", reason:\"",
                  thrown.substr(0, start.size() + std::strlen(bad) + 10));
    }
}

TEST(PegasusCIMObjectPath, EqualityIgnoresTheCaseOfNamesAndTheOrderOfKeys) {
    EXPECT_TRUE(CIMObjectPath("root/cimv2:ZOR_X.a=1,b=\"x\"") ==
                CIMObjectPath("Root/CIMv2:zor_x.B=\"x\",A=1"));
    EXPECT_TRUE(CIMObjectPath("ZOR_X.b=\"x\"") != CIMObjectPath("ZOR_X.b=\"X\""));
    EXPECT_TRUE(CIMObjectPath("ZOR_X.b=1") != CIMObjectPath("ZOR_X.b=\"1\""));
    EXPECT_TRUE(CIMObjectPath("root:ZOR_X") != CIMObjectPath("ZOR_X"));
    EXPECT_TRUE(CIMObjectPath().identical(CIMObjectPath("")));
}

TEST(PegasusCIMKeyBinding, AValueDecidesTheType) {
    EXPECT_EQ(CIMKeyBinding::NUMERIC, CIMKeyBinding("a", CIMValue(Real64(1))).getType());
    EXPECT_EQ(CIMKeyBinding::STRING, CIMKeyBinding("a", CIMValue(Char16('c'))).getType());
    EXPECT_EQ(CIMKeyBinding::REFERENCE,
              CIMKeyBinding("a", CIMValue(CIMObjectPath("C.k=1"))).getType());
    EXPECT_EQ("TypeMismatchException: type mismatch",
              Thrown([] { CIMKeyBinding key("a", CIMValue(Array<String>())); }));
}

}  // namespace
