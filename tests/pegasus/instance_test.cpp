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
    instance.addProperty(CIMProperty("a", CIMValue(Uint8(1))));
    EXPECT_EQ("AlreadyExistsException: already exists: property \"a\"",
              Thrown([&] { instance.addProperty(CIMProperty("a", CIMValue(Uint8(2)))); }));
    EXPECT_NE("", Thrown([&] { instance.addProperty(CIMProperty("A", CIMValue(Uint8(2)))); }));
}

TEST(PegasusCIMInstance, AnIndexOutOfRangeThrows) {
    CIMInstance instance("ZOR_X");
    const CIMInstance& readOnly = instance;
    EXPECT_EQ(kOutOfBounds, Thrown([&] { instance.getProperty(0); }));
    EXPECT_EQ(kOutOfBounds, Thrown([&] { readOnly.getProperty(0); }));
}

TEST(PegasusCIMInstance, CopiesOfAHandleShareItsContent) {
    CIMInstance instance("ZOR_X");
    CIMInstance same(instance);
    same.addProperty(CIMProperty("a", CIMValue(Uint8(1))));
    same.setPath(CIMObjectPath("ZOR_X.k=1"));

    EXPECT_EQ(1U, instance.getPropertyCount());
    EXPECT_STREQ("ZOR_X.k=1", instance.getPath().toString().getCString());
}

TEST(PegasusCIMInstance, DefaultConstructedHandlesThrowWhenUsed) {
    CIMInstance instance;
    CIMProperty property;
    CIMQualifier qualifier;
    EXPECT_TRUE(instance.isUninitialized());
    EXPECT_EQ(kUninitialized, Thrown([&] { instance.findProperty("a"); }));
    EXPECT_EQ(kUninitialized, Thrown([&] { instance.getPath(); }));
    EXPECT_EQ(kUninitialized, Thrown([&] { property.getValue(); }));
    EXPECT_EQ(kUninitialized, Thrown([&] { property.findQualifier("a"); }));
    EXPECT_EQ(kUninitialized, Thrown([&] { qualifier.getName(); }));
    EXPECT_EQ(kUninitialized, Thrown([&] { CIMInstance("ZOR_X").addProperty(property); }));
}

TEST(PegasusCIMProperty, QualifiersAreFoundWithoutCaseAndReadAsArrays) {
    Array<String> texts;
    texts.append("one");
    texts.append("two");
    CIMProperty property("p", CIMValue(Uint16(1)));
    property.addQualifier(CIMQualifier("Values", CIMValue(texts)));
    const CIMConstProperty readOnly(property);

    ASSERT_EQ(0U, readOnly.findQualifier("VALUES"));
    EXPECT_EQ(PEG_NOT_FOUND, readOnly.findQualifier("ValueMap"));
    EXPECT_EQ(1U, readOnly.getQualifierCount());
    Array<String> read;
    readOnly.getQualifier(0).getValue().get(read);
    EXPECT_STREQ("two", read[1].getCString());
    EXPECT_TRUE(readOnly.getQualifier(0).isArray());
    EXPECT_EQ(kOutOfBounds, Thrown([&] { readOnly.getQualifier(1); }));
    EXPECT_EQ("AlreadyExistsException: already exists: qualifier \"values\"",
              Thrown([&] { property.addQualifier(CIMQualifier("values", CIMValue(texts))); }));
}

TEST(PegasusCIMProperty, ANewValueMustHaveTheType) {
    CIMProperty property("p", CIMValue(Uint16(1)));
    property.setValue(CIMValue(Uint16(2)));
    EXPECT_EQ("2", Utf8(property.getValue().toString()));
    EXPECT_EQ("TypeMismatchException: type mismatch",
              Thrown([&] { property.setValue(CIMValue(Uint32(2))); }));
}

}  // namespace
