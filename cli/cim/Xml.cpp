// SPDX-License-Identifier: Apache-2.0
#include "cli/cim/Xml.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>
#include <pugixml.hpp>
#include <sstream>

#include "cli/terminal/Text.h"
#include "shared/Percent.h"

namespace Kemffdc::Cim {
namespace {

constexpr char kDeclaration[] = R"(<?xml version="1.0" encoding="utf-8" ?>)";
constexpr char kMessageId[] = "1";

std::string NamespaceElements(const std::string& nameSpace) {
    std::istringstream parts(nameSpace);
    std::string elements;
    for (std::string part; std::getline(parts, part, '/');) {
        elements += "<NAMESPACE NAME=\"" + part + "\"/>";
    }
    return elements;
}

constexpr std::size_t kMaxTree = std::size_t{48} * 1024 * 1024;  // of the parsed document
constexpr std::size_t kMaxObjects = 16384;
constexpr char kWhiteSpace[] = " \f\n\r\t\v";

std::string Stripped(const std::string& text) {
    const std::size_t first = text.find_first_not_of(kWhiteSpace);
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(kWhiteSpace) - first + 1);
}

// Texts, CDATA sections and what stands between comments.
std::string TextOf(const pugi::xml_node& value) {
    std::string text;
    for (const pugi::xml_node& piece : value.children()) text += piece.value();
    return Stripped(text);
}

// A number is what it is, however it is written.
std::string Decimal(const std::string& text) {
    if (text.compare(0, 2, "0x") != 0 && text.compare(0, 2, "0X") != 0) return text;
    unsigned long long number = 0;
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data() + 2, end, number, 16);
    return read.ec == std::errc() && read.ptr == end ? std::to_string(number) : text;
}

std::string TypeOf(const pugi::xml_node& instance) {
    for (const pugi::xml_node& property : instance.children()) {
        const pugi::xml_attribute name = property.attribute("NAME");
        if (strcasecmp(name.value(), "DataCollectionType") != 0) continue;
        const bool isNumber = std::strstr(property.attribute("TYPE").value(), "int") != nullptr;
        pugi::xml_node value = property.child("VALUE");
        if (const pugi::xml_node array = property.child("VALUE.ARRAY")) {
            value = array.child("VALUE");
            if (value.next_sibling()) return "";  // several are never one "4"
        }
        return isNumber ? Decimal(TextOf(value)) : TextOf(value);
    }
    return "";
}

// No more than it takes as a tree: the library counts the same and texts besides.
std::size_t TreeSize(const std::string& document) {
    std::size_t size = 0;
    for (std::size_t at = 0; at + 1 < document.size(); ++at) {
        const char next = document[at + 1];
        if (document[at] == '<' && next != '/') size += 64;
        if (document[at] == '=' && (next == '"' || next == '\'')) size += 40;
    }
    return size;
}

bool BeginsAsXml(const std::string& document) {
    const std::size_t mark = document.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
    const std::size_t first = document.find_first_not_of(" \t\r\n", mark);
    return first != std::string::npos && document.compare(first, 5, "<?xml") == 0;
}

// Why the library would not take the answer's frame.
std::string WrongFrame(const pugi::xml_node& message, const pugi::xml_node& answer) {
    if (!answer) return "its answer is not CIM-XML";
    if (strcasecmp(answer.attribute("NAME").value(), "EnumerateInstances") != 0) {
        return "its answer is that of another operation";
    }
    if (std::strcmp(message.attribute("ID").value(), kMessageId) != 0) {
        return "its answer belongs to another request";
    }
    if (std::strncmp(message.attribute("PROTOCOLVERSION").value(), "1.", 2) != 0) {
        return "its answer is of another version of the protocol";
    }
    return "";
}

void ReadError(const pugi::xml_node& error, Enumeration& found) {
    const std::string code = Decimal(Stripped(error.attribute("CODE").value()));
    const char* end = code.data() + code.size();
    const auto read = std::from_chars(code.data(), end, found.errorCode);
    if (read.ec != std::errc() || read.ptr != end) found.unreadable = "its error has no code";
    found.failed = found.errorCode != 0;  // 0 is success
    if (found.failed) found.errorText = error.attribute("DESCRIPTION").value();
}

}  // namespace

std::string CimObjectHeader(const std::string& nameSpace) {
    return shared::PercentEncoded(
        nameSpace, [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; });
}

std::string EnumerationRequest(const std::string& nameSpace, const std::string& className) {
    return std::string(kDeclaration) + "\n" +
           R"(<CIM CIMVERSION="2.0" DTDVERSION="2.0"><MESSAGE ID="1" PROTOCOLVERSION="1.0">)" +
           R"(<SIMPLEREQ><IMETHODCALL NAME="EnumerateInstances"><LOCALNAMESPACEPATH>)" +
           NamespaceElements(nameSpace) +
           R"(</LOCALNAMESPACEPATH><IPARAMVALUE NAME="ClassName"><CLASSNAME NAME=")" + className +
           R"("/></IPARAMVALUE></IMETHODCALL></SIMPLEREQ></MESSAGE></CIM>)" + "\n";
}

Enumeration ReadEnumeration(std::string document) {
    Enumeration found;
    document.resize(std::min(document.find('\0'), document.size()));
    if (!BeginsAsXml(document)) {
        found.unreadable = "its answer is not XML";
    } else if (TreeSize(document) > kMaxTree) {
        found.unreadable = "its answer holds too many elements";
    }
    if (!found.unreadable.empty()) return found;

    pugi::xml_document xml;
    const pugi::xml_parse_result parsed = xml.load_buffer_inplace(
        document.data(), document.size(), pugi::parse_default, pugi::encoding_utf8);
    if (!parsed) {
        found.unreadable = "its answer is not well-formed XML";
        return found;
    }
    const pugi::xml_node message = xml.child("CIM").child("MESSAGE");
    const pugi::xml_node answer = message.child("SIMPLERSP").child("IMETHODRESPONSE");
    found.unreadable = WrongFrame(message, answer);
    if (!found.unreadable.empty()) return found;

    if (const pugi::xml_node error = answer.child("ERROR")) ReadError(error, found);
    for (const pugi::xml_node& named :
         answer.child("IRETURNVALUE").children("VALUE.NAMEDINSTANCE")) {
        found.types.push_back(TypeOf(named.child("INSTANCE")));
    }
    if (found.types.size() > kMaxObjects) found.unreadable = "its answer holds too many objects";
    return found;
}

}  // namespace Kemffdc::Cim
