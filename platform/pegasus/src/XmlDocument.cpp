// SPDX-License-Identifier: Apache-2.0
#include "XmlDocument.h"

#include <Pegasus/Client/CIMClientException.h>

#include <algorithm>
#include <charconv>
#include <cstring>

#include "Text.h"
#include "shared/Utf8.h"

namespace Pegasus::Internal {

namespace {

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kDeclaration = "<?xml";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// A tree of small elements takes 16 times their text. This one holds some hundred thousand
// properties.
constexpr std::size_t kMaxTree = std::size_t{48} * 1024 * 1024;
constexpr std::size_t kNodeSize = 64;  // pugixml's, on a machine of 64 bits
constexpr std::size_t kAttributeSize = 40;
// Of a value or an attribute.
constexpr std::size_t kMaxText = std::size_t{1024} * 1024;
// Of a failure's message: names of elements are the peer's.
constexpr std::size_t kMaxMessage = 1024;

bool IsBlank(char c) { return kBlanks.find(c) != std::string_view::npos; }

// No less than what the document's tree takes: counts "<" and "=" in tags, and texts between them.
std::size_t TreeSize(std::string_view text) {
    std::size_t size = 0;
    bool inTag = false;
    bool inText = false;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (c == '<') {
            const bool closing = at + 1 < text.size() && text[at + 1] == '/';
            if (inText) size += kNodeSize;
            if (!closing) size += kNodeSize;
            inTag = true;
            inText = false;
        } else if (c == '>') {
            inTag = false;
        } else if (inTag) {
            if (c == '=') size += kAttributeSize;
        } else if (!IsBlank(c)) {
            inText = true;
        }
    }
    return size;
}

const char* Problem(pugi::xml_parse_status status) {
    switch (status) {
        case pugi::status_end_element_mismatch:
            return "Closing element does not match opening element";
        case pugi::status_bad_attribute:
            return "Bad attribute value";
        case pugi::status_bad_start_element:
            return "Bad opening element";
        case pugi::status_bad_end_element:
            return "Bad closing element";
        case pugi::status_bad_comment:
            return "Unterminated comment";
        case pugi::status_bad_cdata:
            return "Unterminated CDATA";
        case pugi::status_bad_doctype:
            return "Unterminated DOCTYPE";
        default:
            return "Not well-formed";
    }
}

// Appends the character of "#38" or "#x26"; false when there is none.
bool AppendCharacter(std::string& bytes, std::string_view number) {
    number.remove_prefix(1);
    const bool hexadecimal = !number.empty() && number[0] == 'x';
    if (hexadecimal) number.remove_prefix(1);
    unsigned long code = 0;
    const char* end = number.data() + number.size();
    const auto read = std::from_chars(number.data(), end, code, hexadecimal ? 16 : 10);
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    if (read.ec != std::errc() || read.ptr != end || code == 0 || code > 0x10FFFF || surrogate) {
        return false;
    }
    shared::AppendUtf8(bytes, static_cast<char32_t>(code));
    return true;
}

// `name` stands between "&" and ";". Only the five entities of XML itself are known: what a
// document declares is not.
bool AppendEntity(std::string& bytes, std::string_view name) {
    if (!name.empty() && name[0] == '#') return AppendCharacter(bytes, name);
    struct Entity {
        std::string_view name;
        char character;
    };
    static constexpr Entity kEntities[] = {
        {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
    const auto* found = std::find_if(std::begin(kEntities), std::end(kEntities),
                                     [&](const Entity& entity) { return entity.name == name; });
    if (found == std::end(kEntities)) return false;
    bytes += found->character;
    return true;
}

bool IsText(pugi::xml_node node) {
    return node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata;
}

}  // namespace

XmlDocument::XmlDocument(std::string& text) : m_text(text) {
    RequireDeclaration();
    Parse();
}

void XmlDocument::RequireDeclaration() const {
    std::string_view rest = m_text;
    if (rest.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        rest.remove_prefix(kByteOrderMark.size());
    }
    rest.remove_prefix(std::min(rest.find_first_not_of(kBlanks), rest.size()));
    if (rest.substr(0, kDeclaration.size()) == kDeclaration) return;
    const auto line = Line(static_cast<std::ptrdiff_t>(m_text.size() - rest.size()));
    throw CIMClientXmlException(String(("Validation error: on line " + std::to_string(line) +
                                        ": Expected <?xml ... ?> style declaration")
                                           .c_str()));
}

void XmlDocument::Parse() {
    // Some servers send the end of their text along, and what lies behind it.
    m_text.resize(std::min(m_text.find('\0'), m_text.size()));
    if (TreeSize(m_text) > kMaxTree) {
        throw CIMClientXmlException("Too many elements: the answer takes more than 48 MiB");
    }
    const pugi::xml_parse_result result = m_document.load_buffer_inplace(
        m_text.data(), m_text.size(),
        pugi::parse_cdata | pugi::parse_declaration | pugi::parse_wconv_attribute,
        pugi::encoding_utf8);
    if (result) return;
    const std::size_t line = Line(result.offset);
    throw CIMClientXmlException(String(
        (std::string(Problem(result.status)) + ": on line " + std::to_string(line)).c_str()));
}

pugi::xml_node XmlDocument::Root(const char* name) const {
    XmlChildren children(*this, m_document);
    const pugi::xml_node declaration = m_document.first_child();
    if (declaration.type() != pugi::node_declaration) {
        Fail(m_document, "Expected <?xml ... ?> style declaration");
    }
    children.Expect("xml");
    const pugi::xml_node root = children.Expect(name);
    children.End();
    return root;
}

bool XmlDocument::Has(pugi::xml_node element, const char* attribute) const {
    return !element.attribute(attribute).empty();
}

std::string XmlDocument::Attribute(pugi::xml_node element, const char* attribute) const {
    const pugi::xml_attribute found = element.attribute(attribute);
    if (!found)
        Fail(element, std::string("missing ") + element.name() + "." + attribute + " attribute");
    return Resolve(element, found.value());
}

CIMName XmlDocument::NameAttribute(pugi::xml_node element, const char* attribute) const {
    const String name = ToString(element, Attribute(element, attribute));
    if (CIMName::legal(name)) return {name};
    Fail(element,
         std::string("Illegal value for ") + element.name() + "." + attribute + " attribute");
}

std::string XmlDocument::Text(pugi::xml_node element) const {
    const pugi::xml_node first = element.first_child();
    if (!first) return {};
    if (!IsText(first))
        Fail(element, std::string("Expected text in the ") + element.name() + " element");
    if (!first.next_sibling()) {
        if (first.type() != pugi::node_cdata) return Resolve(element, Trimmed(first.value()));
        RequireBounded(element, first.value());
        return first.value();
    }
    std::string raw;  // in pieces, with comments between
    for (const pugi::xml_node piece : element.children()) {
        if (piece.type() != pugi::node_pcdata) {
            Fail(element, std::string("Unexpected content in the ") + element.name() + " element");
        }
        raw += piece.value();
    }
    return Resolve(element, Trimmed(raw));
}

String XmlDocument::ToString(pugi::xml_node element, std::string_view bytes) const {
    try {
        return FromUtf8(bytes);
    } catch (const Exception& notUtf8) {
        Fail(element, ToUtf8(notUtf8.getMessage()));
    }
}

void XmlDocument::Fail(pugi::xml_node element, const std::string& what) const {
    throw CIMClientXmlException(FromPeer("Validation error: on line " +
                                         std::to_string(Line(element.offset_debug())) + ": " +
                                         what.substr(0, kMaxMessage)));
}

void XmlDocument::RequireBounded(pugi::xml_node element, std::string_view text) const {
    if (text.size() <= kMaxText) return;
    Fail(element, std::string("More than 1 MiB of text in the ") + element.name() + " element");
}

std::string XmlDocument::Resolve(pugi::xml_node element, std::string_view raw) const {
    RequireBounded(element, raw);
    std::string bytes;
    for (;;) {
        const std::size_t ampersand = raw.find('&');
        bytes += raw.substr(0, ampersand);
        if (ampersand == std::string_view::npos) return bytes;
        const std::size_t semicolon = raw.find(';', ampersand);
        if (semicolon == std::string_view::npos ||
            !AppendEntity(bytes, raw.substr(ampersand + 1, semicolon - ampersand - 1))) {
            Fail(element, "Unknown entity reference");
        }
        raw.remove_prefix(semicolon + 1);
    }
}

std::size_t XmlDocument::Line(std::ptrdiff_t offset) const {
    const auto end = m_text.begin() + std::clamp<std::ptrdiff_t>(
                                          offset, 0, static_cast<std::ptrdiff_t>(m_text.size()));
    return 1 + static_cast<std::size_t>(std::count(m_text.begin(), end, '\n'));
}

pugi::xml_node XmlChildren::If(const char* name) {
    if (!m_next || std::strcmp(m_next.name(), name) != 0) return {};
    const pugi::xml_node found = m_next;
    m_next = m_next.next_sibling();
    return found;
}

pugi::xml_node XmlChildren::Expect(const char* name) {
    const pugi::xml_node found = If(name);
    if (!found) FailExpecting((std::string(name) + " element").c_str());
    return found;
}

void XmlChildren::End() const {
    if (m_next) FailExpecting("no more content");
}

void XmlChildren::FailExpecting(const char* what) const {
    const std::string where = m_parent.name()[0] == '\0'
                                  ? std::string("document")
                                  : std::string(m_parent.name()) + " element";
    m_document.Fail(m_next ? m_next : m_parent,
                    std::string("Expected ") + what + " in the " + where);
}

}  // namespace Pegasus::Internal
