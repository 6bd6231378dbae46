// SPDX-License-Identifier: Apache-2.0
// What one document may hold: a refusal in words beyond a bound, everything as it is below it.
#include <gtest/gtest.h>
#include <pthread.h>

#include <ctime>
#include <functional>

#include "XmlReader.h"
#include "support.h"

using namespace Pegasus;

namespace {

constexpr char kXmlFailure[] = "CIMClientXmlException: ";

std::string Repeated(const std::string& text, std::size_t times) {
    std::string all;
    all.reserve(text.size() * times);
    for (std::size_t i = 0; i < times; ++i) all += text;
    return all;
}

// Of a document: what `read` says of it, or the exception without its line.
std::string OutcomeOf(std::string xml, const std::function<std::string(std::string&)>& read) {
    xml.replace(xml.find("@ID@"), 4, "1");
    std::string outcome;
    const std::string thrown = Thrown([&] { outcome = read(xml); });
    const std::size_t line = thrown.find("line ");
    if (line == std::string::npos) return outcome + thrown;
    return kXmlFailure + thrown.substr(thrown.find(' ', line + 5) + 1);
}

std::string Outcome(const std::string& instances) {
    return OutcomeOf(EnumerationXml(instances), [](std::string& xml) {
        const auto answer = Internal::ReadEnumerateInstances(xml, 1);
        return std::to_string(answer.instances.size()) + " instances";
    });
}

std::string OutcomeOfMethod(const std::string& parameters) {
    return OutcomeOf(MethodXml(parameters), [](std::string& xml) {
        const auto answer = Internal::ReadInvokeMethod(xml, 1);
        return std::to_string(answer.outParameters.size()) + " parameters";
    });
}

std::string Failure(const std::string& text) { return kXmlFailure + text; }

std::string Instance(const std::string& properties, const std::string& keys = "") {
    return "<VALUE.NAMEDINSTANCE><INSTANCENAME CLASSNAME=\"A\">" + keys +
           "</INSTANCENAME><INSTANCE CLASSNAME=\"A\">" + properties +
           "</INSTANCE></VALUE.NAMEDINSTANCE>";
}

std::string Property(const std::string& value, const std::string& type = "string") {
    return "<PROPERTY NAME=\"P\" TYPE=\"" + type + "\">" + value + "</PROPERTY>";
}

std::string ArrayProperty(const std::string& values, const std::string& type = "string") {
    return "<PROPERTY.ARRAY NAME=\"P\" TYPE=\"" + type + "\"><VALUE.ARRAY>" + values +
           "</VALUE.ARRAY></PROPERTY.ARRAY>";
}

std::string Key(const std::string& name, const std::string& value) {
    return "<KEYBINDING NAME=\"" + name + "\"><KEYVALUE>" + value + "</KEYVALUE></KEYBINDING>";
}

std::string ReferenceKey(const std::string& name, const std::string& keys) {
    return "<KEYBINDING NAME=\"" + name + "\"><VALUE.REFERENCE><INSTANCENAME CLASSNAME=\"A\">" +
           keys + "</INSTANCENAME></VALUE.REFERENCE></KEYBINDING>";
}

double ProcessorSeconds(const std::function<void()>& action) {
    const auto now = [] {
        timespec time{};
        ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
    };
    const double start = now();
    action();
    return now() - start;
}

TEST(PegasusBounds, InstancesAreCounted) {
    EXPECT_EQ("16384 instances", Outcome(Repeated(Instance(""), 16384)));
    EXPECT_EQ(Failure("The answer holds more than 16384 instances"),
              Outcome(Repeated(Instance(""), 16385)));
}

TEST(PegasusBounds, AThousandObjectsOfMoreThanAMebibyteAreTaken) {
    std::string properties;
    for (int i = 0; i < 20; ++i) {
        properties += "<PROPERTY NAME=\"P" + std::to_string(i) +
                      "\" TYPE=\"string\"><VALUE>some text of it</VALUE></PROPERTY>\n";
    }
    const std::string all = Repeated(Instance(properties, Key("InstanceID", "ZOR:1")), 1000);
    EXPECT_GT(all.size(), 1024U * 1024);
    EXPECT_EQ("1000 instances", Outcome(all));
}

TEST(PegasusBounds, ArrayElementsAreCounted) {
    // The property itself is one of 262,144.
    const std::string value = "<VALUE>1</VALUE>";
    EXPECT_EQ("1 instances", Outcome(Instance(ArrayProperty(Repeated(value, 262143), "uint8"))));
    EXPECT_EQ(Failure("The answer holds more than 262144 properties, values or keys"),
              Outcome(Instance(ArrayProperty(Repeated(value, 262144), "uint8"))));
    EXPECT_EQ(Failure("The answer holds more than 262144 properties, values or keys"),
              Outcome(Instance(ArrayProperty(Repeated("<VALUE/>", 700000)))));
    EXPECT_EQ(Failure("The answer holds more than 262144 properties, values or keys"),
              Outcome(Instance(ArrayProperty(Repeated("<VALUE/>", 700000), "datetime"))));
}

TEST(PegasusBounds, AllKindsOfItemsAreCountedTogether) {
    const auto outcome = [](std::size_t keys) {
        return Outcome(Repeated(Instance(Property("<VALUE>x</VALUE>")), 10000) +
                       Repeated(Instance("", Repeated(Key("k", ""), 1000)), keys));
    };
    EXPECT_EQ("10200 instances", outcome(200));
    EXPECT_EQ(Failure("The answer holds more than 262144 properties, values or keys"),
              outcome(253));
}

TEST(PegasusBounds, ElementsHaveABoundBeforeTheyAreRead) {
    const std::string message =
        "CIMClientXmlException: Too many elements: the answer takes more "
        "than 48 MiB";
    for (const std::string& small :
         {std::string("<a/>"), std::string("x<a/>"), std::string("<a b=\"\" c=''/>"),
          std::string("<a></a>"), std::string("<?a?><a/>")}) {
        EXPECT_EQ(message, Outcome(Repeated(small, 800000))) << small;
    }
    EXPECT_EQ(Failure("Expected no more content in the IRETURNVALUE element"),
              Outcome(Repeated("<a/>", 700000)));
    EXPECT_EQ(message, Outcome(Instance("<A " + Repeated("a='' ", 1300000) + "/>")));
}

TEST(PegasusBounds, TextsHaveABound) {
    const std::string most(1024 * 1024, 'x');
    EXPECT_EQ("1 instances", Outcome(Instance(Property("<VALUE>" + most + "</VALUE>"))));
    EXPECT_EQ(Failure("More than 1 MiB of text in the VALUE element"),
              Outcome(Instance(Property("<VALUE>" + most + "x</VALUE>"))));
    EXPECT_EQ(Failure("More than 1 MiB of text in the VALUE element"),
              Outcome(Instance(Property("<VALUE><![CDATA[" + most + "x]]></VALUE>"))));
    EXPECT_EQ(Failure("More than 1 MiB of text in the PROPERTY element"),
              Outcome(Instance("<PROPERTY NAME=\"" + most + "x\" TYPE=\"string\"/>")));
    const std::string half = "<VALUE>" + most.substr(0, most.size() / 2 - 1) + "</VALUE>";
    EXPECT_EQ("1 instances", Outcome(Instance(ArrayProperty(half + half))));
    EXPECT_EQ(Failure("The array holds more than 1 MiB"),
              Outcome(Instance(ArrayProperty(half + half + "<VALUE/>"))));
}

TEST(PegasusBounds, ArraysOfReferencesHaveTheBoundOfTheirTexts) {
    const auto references = [](std::size_t count) {
        return "<PARAMVALUE NAME=\"a\"><VALUE.REFARRAY>" +
               Repeated("<VALUE.REFERENCE><CLASSNAME NAME=\"" + std::string(1023, 'A') +
                            "\"/></VALUE.REFERENCE>",
                        count) +
               "</VALUE.REFARRAY></PARAMVALUE>";
    };
    EXPECT_EQ("1 parameters", OutcomeOfMethod(references(1024)));
    EXPECT_EQ(Failure("The array holds more than 1 MiB"), OutcomeOfMethod(references(1025)));
}

TEST(PegasusBounds, PathsHaveABound) {
    // 9 more: the class, the key's name, "=", two quotation marks and a comma.
    const std::string most(256 * 1024 - 9, 'x');
    EXPECT_EQ("1 instances", Outcome(Instance("", Key("key", most + "x"))));
    EXPECT_EQ(Failure("The path is longer than 256 KiB"),
              Outcome(Instance("", Key("key", most + "xx"))));
    std::string names;
    for (int i = 0; i < 2; ++i) {
        names += "<NAMESPACE NAME=\"" + std::string(128 * 1024, 'n') + "\"/>";
    }
    EXPECT_EQ(Failure("The path is longer than 256 KiB"),
              Outcome(Instance("<PROPERTY.REFERENCE NAME=\"R\"><VALUE.REFERENCE><LOCALCLASSPATH>"
                               "<LOCALNAMESPACEPATH>" +
                               names +
                               "</LOCALNAMESPACEPATH><CLASSNAME NAME=\"A\"/></LOCALCLASSPATH>"
                               "</VALUE.REFERENCE></PROPERTY.REFERENCE>")));
}

TEST(PegasusBounds, ReferencesAsKeysHaveABoundTogether) {
    // Each level doubles the quotation marks of the one below.
    std::string nested = Key("k", "\"");
    for (int level = 0; level < 12; ++level) nested = ReferenceKey("k", nested);
    EXPECT_EQ("16 instances", Outcome(Repeated(Instance("", nested), 16)));
    EXPECT_EQ(Failure("The references in keys are longer than 4 MiB together"),
              Outcome(Repeated(Instance("", nested), 200)));
    EXPECT_EQ(
        "1000 instances",
        Outcome(Repeated(Instance("", ReferenceKey("System", Key("Name", "chassis-1"))), 1000)));
}

TEST(PegasusBounds, AMessageIsShortWhateverTheElementsAreCalled) {
    EXPECT_EQ(kXmlFailure + std::string("Expected PROPERTY element in the INSTANCE element"),
              Outcome(Instance("<" + std::string(1000000, 'n') + "/>")));
    const std::string name(1000000, 'n');
    EXPECT_LT(
        Outcome(Instance(Property("<VALUE>x</VALUE><VALUE>x</VALUE>")) + "<" + name + "/>").size(),
        2000U);
    std::string property = Property("<VALUE/>");
    property.replace(property.find("\"P\""), 3, '"' + name + '"');
    EXPECT_LT(Outcome(Instance(property + property)).size(), 2000U);
}

// Quadratic work would take ten times as long for each item.
TEST(PegasusBounds, TimeIsInProportion) {
    const auto qualifiers = [](int count) {
        std::string all;
        for (int i = 0; i < count; ++i) {
            all += "<QUALIFIER NAME=\"Q" + std::to_string(i) + "\" TYPE=\"string\"/>";
        }
        return all;
    };
    const auto properties = [](int count) {
        std::string all;
        for (int i = 0; i < count; ++i) {
            all += "<PROPERTY NAME=\"P" + std::to_string(i) + "\" TYPE=\"string\"/>";
        }
        return all;
    };
    const auto seconds = [](const std::string& inside) {
        return ProcessorSeconds([&] { EXPECT_EQ("1 instances", Outcome(inside)); });
    };
    const double few = seconds(Instance(qualifiers(10000)));
    EXPECT_LT(seconds(Instance(qualifiers(100000))), few * 40 + 0.2);
    const double fewOfProperty = seconds(Instance(Property(qualifiers(10000))));
    EXPECT_LT(seconds(Instance(Property(qualifiers(100000)))), fewOfProperty * 40 + 0.2);
    const double fewProperties = seconds(Instance(properties(10000)));
    EXPECT_LT(seconds(Instance(properties(100000))), fewProperties * 40 + 0.2);
}

}  // namespace
