// SPDX-License-Identifier: Apache-2.0
#include "CimXml.h"

#include <openssl/evp.h>

#include <cctype>
#include <charconv>
#include <pugixml.hpp>
#include <sstream>

#include "Text.h"

namespace Kemffdc {
namespace {

constexpr char kDeclaration[] = R"(<?xml version="1.0" encoding="utf-8" ?>)";
constexpr char kRealm[] = "Basic realm=\"";

std::string NamespaceElements(const std::string& nameSpace) {
    std::istringstream parts(nameSpace);
    std::string elements;
    for (std::string part; std::getline(parts, part, '/');) {
        elements += "<NAMESPACE NAME=\"" + part + "\"/>";
    }
    return elements;
}

std::string TypeOf(const pugi::xml_node& instance) {
    for (const pugi::xml_node& property : instance.children("PROPERTY")) {
        if (std::string(property.attribute("NAME").value()) == "DataCollectionType") {
            return property.child_value("VALUE");
        }
    }
    return "";
}

std::string Base64(const std::string& bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                     reinterpret_cast<const unsigned char*>(bytes.data()),
                                     static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(size));
    return text;
}

// The low bytes of the UTF-16 units of valid UTF-8.
std::string OneByteEach(const std::string& text) {
    if (ValidUtf8(text) != text) return text;
    std::string bytes;
    for (std::size_t at = 0; at < text.size();) {
        const auto first = static_cast<unsigned char>(text[at]);
        const std::size_t length = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
        unsigned code = length == 1 ? first : first & (0xFFU >> (length + 1));
        for (std::size_t i = 1; i < length; ++i) {
            code = (code << 6) | (static_cast<unsigned char>(text[at + i]) & 0x3FU);
        }
        if (code > 0xFFFF) {
            bytes += static_cast<char>((0xD800 + ((code - 0x10000) >> 10)) & 0xFF);
        }
        bytes += static_cast<char>(code & 0xFF);
        at += length;
    }
    return bytes;
}

}  // namespace

std::string CimObjectHeader(const std::string& nameSpace) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string value;
    for (const char c : nameSpace) {
        const auto byte = static_cast<unsigned char>(c);
        if (std::isalnum(byte) != 0) {
            value += c;
        } else {
            value += {'%', kDigits[byte >> 4], kDigits[byte & 0xF]};
        }
    }
    return value;
}

std::string EnumerationRequest(const std::string& nameSpace, const std::string& className) {
    return std::string(kDeclaration) + "\n" +
           R"(<CIM CIMVERSION="2.0" DTDVERSION="2.0"><MESSAGE ID="1" PROTOCOLVERSION="1.0">)" +
           R"(<SIMPLEREQ><IMETHODCALL NAME="EnumerateInstances"><LOCALNAMESPACEPATH>)" +
           NamespaceElements(nameSpace) +
           R"(</LOCALNAMESPACEPATH><IPARAMVALUE NAME="ClassName"><CLASSNAME NAME=")" + className +
           R"("/></IPARAMVALUE></IMETHODCALL></SIMPLEREQ></MESSAGE></CIM>)" + "\n";
}

std::string PercentDecoded(const std::string& text) {
    std::string bytes;
    for (std::size_t at = 0; at < text.size(); ++at) {
        unsigned byte = 0;
        const char* first = text.data() + at + 1;
        if (text[at] == '%' && at + 2 < text.size() &&
            std::from_chars(first, first + 2, byte, 16).ptr == first + 2) {
            bytes += static_cast<char>(byte);
            at += 2;
        } else {
            bytes += text[at];
        }
    }
    return bytes;
}

Enumeration ReadEnumeration(const std::string& document) {
    Enumeration found;
    pugi::xml_document xml;
    const pugi::xml_parse_result parsed =
        xml.load_buffer(document.data(), document.size(), pugi::parse_default, pugi::encoding_utf8);
    const pugi::xml_node answer =
        xml.child("CIM").child("MESSAGE").child("SIMPLERSP").child("IMETHODRESPONSE");
    if (document.compare(0, 5, "<?xml") != 0) {
        found.unreadable = "its answer is not XML";
    } else if (!parsed) {
        found.unreadable = "its answer is not well-formed XML";
    } else if (!answer) {
        found.unreadable = "its answer is not CIM-XML";
    }
    if (!found.unreadable.empty()) return found;

    if (const pugi::xml_node error = answer.child("ERROR")) {
        found.failed = true;
        found.errorCode = error.attribute("CODE").as_int();
        found.errorText = error.attribute("DESCRIPTION").value();
    }
    for (const pugi::xml_node& named :
         answer.child("IRETURNVALUE").children("VALUE.NAMEDINSTANCE")) {
        found.types.push_back(TypeOf(named.child("INSTANCE")));
    }
    return found;
}

std::string BasicAuthorization(const std::string& user, const std::string& password) {
    return "Basic " + Base64(OneByteEach(user) + ":" + OneByteEach(password));
}

bool IsBasicChallenge(const std::string& challenge) {
    const std::string realm = kRealm;
    return challenge.compare(0, realm.size(), realm) == 0 &&
           challenge.find('"', realm.size()) != std::string::npos;
}

}  // namespace Kemffdc
