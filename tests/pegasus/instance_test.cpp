// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "support.h"

using namespace Pegasus;

namespace {

const char kUninitialized[] = "UninitializedObjectException: uninitialized object";
const char kOutOfBounds[] = "IndexOutOfBoundsException: index out of bounds";

TEST(PegasusCIMInstance, PropertiesKeepTheirOrderAndAreFoundWithoutCase) {
    CIMInstance instance("ZOR_X");
    for (Uint32 i = 0; i < 100; ++i) {  // more than the index does without a table
        instance.addProperty(
            CIMProperty(CIMName(("Name" + std::to_string(i)).c_str()), CIMValue(i)));
    }

    EXPECT_EQ(100U, instance.getPropertyCount());
    EXPECT_EQ(0U, instance.findProperty("name0"));
    EXPECT_EQ(99U, instance.findProperty("NAME99"));
    EXPECT_EQ(PEG_NOT_FOUND, instance.findProperty("Name100"));
    EXPECT_STREQ("Name42", instance.getProperty(42).getName().getString().getCString());
}

TEST(PegasusCIMInstance, AddingAPropertyTwiceThrows) {
    CIMInstance instance("ZOR_X");
    instance.addProperty(CIMProperty("a", CIMValue(Uint16(1))));
    EXPECT_EQ("AlreadyExistsException: already exists: property \"a\"",
              Thrown([&] { instance.addProperty(CIMProperty("a", CIMValue(Uint16(2)))); }));
    EXPECT_NE("", Thrown([&] { instance.addProperty(CIMProperty("A", CIMValue(Uint16(2)))); }));
}

TEST(PegasusCIMInstance, AnIndexOutOfRangeThrows) {
    CIMInstance instance("ZOR_X");
    EXPECT_EQ(kOutOfBounds, Thrown([&] { instance.getProperty(0); }));
    EXPECT_EQ(kOutOfBounds, Thrown([] { CIMProperty("p", CIMValue(true)).getQualifier(0); }));
}

TEST(PegasusCIMInstance, CopiesOfAHandleShareItsContent) {
    CIMInstance instance("ZOR_X");
    CIMInstance same(instance);
    same.addProperty(CIMProperty("a", CIMValue(Uint16(1))));
    same.setPath(CIMObjectPath("", "root", "ZOR_X"));

    EXPECT_EQ(1U, instance.getPropertyCount());
    EXPECT_STREQ("root:ZOR_X", instance.getPath().toString().getCString());
}

TEST(PegasusCIMInstance, DefaultConstructedOnesThrowWhenUsed) {
    CIMInstance instance;
    EXPECT_TRUE(instance.isUninitialized());
    EXPECT_EQ(kUninitialized, Thrown([&] { instance.findProperty("a"); }));
    EXPECT_EQ(kUninitialized, Thrown([&] { instance.getPath(); }));
}

TEST(PegasusCIMProperty, QualifiersAreFoundWithoutCaseAndReadAsArrays) {
    Array<String> texts;
    texts.append("one");
    texts.append("two");
    CIMProperty property("p", CIMValue(Uint16(1)));
    property.addQualifier(CIMQualifier("Values", CIMValue(texts)));

    ASSERT_EQ(0U, property.findQualifier("VALUES"));
    EXPECT_EQ(PEG_NOT_FOUND, property.findQualifier("ValueMap"));
    Array<String> read;
    property.getQualifier(0).getValue().get(read);
    EXPECT_STREQ("two", read[1].getCString());
    EXPECT_TRUE(property.getQualifier(0).isArray());
    EXPECT_EQ(kOutOfBounds, Thrown([&] { property.getQualifier(1); }));
    EXPECT_EQ("AlreadyExistsException: already exists: qualifier \"values\"",
              Thrown([&] { property.addQualifier(CIMQualifier("values", CIMValue(texts))); }));
}

}  // namespace
