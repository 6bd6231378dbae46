// SPDX-License-Identifier: Apache-2.0
// The preflight judges an answer as the library's own client will: what the client takes is not
// refused, CIM errors are the same, and as many objects would be exported.
#include <gtest/gtest.h>

#include <string>

#include "XmlReader.h"
#include "cli/cim/Xml.h"

namespace {

std::string Document(const std::string& inside) {
    return "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<CIM CIMVERSION=\"2.0\" "
           "DTDVERSION=\"2.0\"><MESSAGE ID=\"1\" PROTOCOLVERSION=\"1.0\"><SIMPLERSP>"
           "<IMETHODRESPONSE NAME=\"EnumerateInstances\">" +
           inside + "</IMETHODRESPONSE></SIMPLERSP></MESSAGE></CIM>";
}

std::string Object(const std::string& property) {
    return "<VALUE.NAMEDINSTANCE><INSTANCENAME CLASSNAME=\"X\"/><INSTANCE CLASSNAME=\"X\">" +
           property + "</INSTANCE></VALUE.NAMEDINSTANCE>";
}

std::string Objects(const std::string& property) {
    return Document("<IRETURNVALUE>" + Object(property) + Object("") + "</IRETURNVALUE>");
}

std::string Type(const std::string& value, const std::string& type = "uint16",
                 const std::string& name = "DataCollectionType") {
    return Objects("<PROPERTY NAME=\"" + name + "\" TYPE=\"" + type + "\">" + value +
                   "</PROPERTY>");
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
}

// "2 objects, 1 exported", "CIM error 3: text", "refused"
std::string OfLibrary(std::string document) {
    using namespace Pegasus;
    try {
        const auto answer = Internal::ReadEnumerateInstances(document, 1);
        if (answer.error) {
            return "CIM error " + std::to_string(static_cast<int>(answer.error->code)) + ": " +
                   static_cast<const char*>(answer.error->description.getCString());
        }
        Uint32 exported = 0;
        for (Uint32 i = 0; i < answer.instances.size(); ++i) {
            CIMInstance instance = answer.instances[i];
            const Uint32 at = instance.findProperty("DataCollectionType");
            std::string text;
            if (at != PEG_NOT_FOUND) {
                const CString raw = instance.getProperty(at).getValue().toString().getCString();
                text = static_cast<const char*>(raw);
            }
            const std::size_t first = text.find_first_not_of(" \f\n\r\t\v");
            const std::size_t last = text.find_last_not_of(" \f\n\r\t\v");
            const bool four =
                first != std::string::npos && text.substr(first, last + 1 - first) == "4";
            exported += four ? 0 : 1;
        }
        return std::to_string(answer.instances.size()) + " objects, " + std::to_string(exported) +
               " exported";
    } catch (const Exception&) {
        return "refused";
    }
}

std::string OfTool(const std::string& document) {
    const Kemffdc::Cim::Enumeration answer = Kemffdc::Cim::ReadEnumeration(document);
    if (!answer.unreadable.empty()) return "refused";
    if (answer.failed) {
        return "CIM error " + std::to_string(answer.errorCode) + ": " + answer.errorText;
    }
    std::size_t exported = 0;
    for (const std::string& type : answer.types) exported += type == "4" ? 0U : 1U;
    return std::to_string(answer.types.size()) + " objects, " + std::to_string(exported) +
           " exported";
}

struct Row {
    std::string document;
    const char* outcome;
    const char* why;
};

TEST(CimPreflightReader, AgreesWithTheLibrarysClient) {
    const std::string four = Type("<VALUE>4</VALUE>");
    const std::string error = Document("<ERROR CODE=\"3\" DESCRIPTION=\"a&#10;b\nc\"/>");
    std::string thousand;
    for (int i = 0; i < 1000; ++i) {
        thousand += Object("<PROPERTY NAME=\"A\" TYPE=\"string\"><VALUE>" + std::string(1500, 'x') +
                           "</VALUE></PROPERTY>");
    }
    std::string many;
    for (int i = 0; i < 16385; ++i) many += Object("");
    std::string elements;
    for (int i = 0; i < 800000; ++i) elements += "<a/>";
    const Row rows[] = {
        {four, "2 objects, 1 exported", "4"},
        {Type("<VALUE> \n4\t</VALUE>"), "2 objects, 1 exported", "blanks around it"},
        {Type("<VALUE>&#32;4&#9;</VALUE>", "string"), "2 objects, 1 exported", "escaped blanks"},
        {Type("<VALUE>\v4\f</VALUE>", "string"), "2 objects, 1 exported", "other white space"},
        {Type("<VALUE>0x04</VALUE>"), "2 objects, 1 exported", "hexadecimal"},
        {Type("<VALUE>0x04</VALUE>", "string"), "2 objects, 2 exported", "a text, not a number"},
        {Type("<VALUE><![CDATA[4]]></VALUE>", "string"), "2 objects, 1 exported", "CDATA"},
        {Type("<VALUE><!-- -->4<!-- --></VALUE>"), "2 objects, 1 exported", "comments"},
        {Type("<VALUE>4</VALUE>", "uint16", "DATAcollectionTYPE"), "2 objects, 1 exported",
         "other letters"},
        {Type(""), "2 objects, 2 exported", "null"},
        {Type("<VALUE></VALUE>", "string"), "2 objects, 2 exported", "empty"},
        {Type("<VALUE>14</VALUE>"), "2 objects, 2 exported", "14"},
        {Objects("<PROPERTY.ARRAY NAME=\"DataCollectionType\" TYPE=\"uint16\"><VALUE.ARRAY>"
                 "<VALUE>4</VALUE></VALUE.ARRAY></PROPERTY.ARRAY>"),
         "2 objects, 1 exported", "an array of one"},
        {Objects("<PROPERTY.ARRAY NAME=\"DataCollectionType\" TYPE=\"uint16\"><VALUE.ARRAY>"
                 "<VALUE>4</VALUE><VALUE>4</VALUE></VALUE.ARRAY></PROPERTY.ARRAY>"),
         "2 objects, 2 exported", "an array of two"},
        {"\xEF\xBB\xBF" + four, "2 objects, 1 exported", "a byte order mark"},
        {"\r\n \t" + four, "2 objects, 1 exported", "line ends before it"},
        {four + std::string(2, '\0') + "<x", "2 objects, 1 exported", "a NUL behind it"},
        {four + std::string(1, '\0') + elements, "2 objects, 1 exported", "elements behind a NUL"},
        {Replaced(four, "EnumerateInstances", "ENUMERATEINSTANCES"), "2 objects, 1 exported",
         "the operation in other letters"},
        {Document("<IRETURNVALUE>" + thousand + "</IRETURNVALUE>"), "1000 objects, 1000 exported",
         "more than a mebibyte"},
        {Document(""), "0 objects, 0 exported", "nothing"},
        {error, "CIM error 3: a\nb c", "an error with line ends"},
        {Replaced(error, "\"3\"", "\" 3 \""), "CIM error 3: a\nb c", "blanks around the code"},
        {Replaced(error, "\"3\"", "\"03\""), "CIM error 3: a\nb c", "a zero before the code"},
        {Replaced(error, "\"3\"", "\"000\""), "0 objects, 0 exported", "zeros alone"},
        {Replaced(error, "\"3\"", "\"\""), "refused", "no code"},
        {Replaced(error, "\"3\"", "\"0\""), "0 objects, 0 exported", "an error that is none"},
        {Replaced(four, "ID=\"1\"", "ID=\"2\""), "refused", "another message"},
        {Replaced(four, "PROTOCOLVERSION=\"1.0\"", "PROTOCOLVERSION=\"2.0\""), "refused",
         "another protocol"},
        {Replaced(four, "EnumerateInstances", "GetClass"), "refused", "another operation"},
        {Replaced(four, "<?xml version=\"1.0\" encoding=\"utf-8\" ?>", ""), "refused",
         "no declaration"},
        {four.substr(0, four.size() / 2), "refused", "cut"},
        {std::string("\0", 1) + four, "refused", "a NUL before it"},
        {Document("<IRETURNVALUE>" + many + "</IRETURNVALUE>"), "refused", "too many objects"},
        {Document(elements), "refused", "too many elements"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(OfLibrary(row.document), row.outcome) << "library, " << row.why;
        EXPECT_EQ(OfTool(row.document), row.outcome) << "tool, " << row.why;
    }
}

}  // namespace
