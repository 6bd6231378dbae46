// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PEGASUS_XMLDOCUMENT_H
#define VARNEX_PEGASUS_XMLDOCUMENT_H

#include <Pegasus/Common/CIMName.h>
#include <Pegasus/Common/String.h>

#include <pugixml.hpp>
#include <string>
#include <string_view>

namespace Pegasus::Internal {

// One XML document, parsed in place: escapes are resolved when a text is asked for, because
// literal blanks at the ends of a value are dropped and escaped ones are not.
// All failures are CIMClientXmlException with the line. Documents whose tree takes more than 48 MiB
// and texts of more than 1 MiB are failures. A NUL ends the document.
class XmlDocument {
public:
    // `text` must outlive the document and is changed by it.
    explicit XmlDocument(std::string& text);

    // The root element, which must have this name.
    pugi::xml_node Root(const char* name) const;

    bool Has(pugi::xml_node element, const char* attribute) const;
    // Fails when the attribute is missing.
    std::string Attribute(pugi::xml_node element, const char* attribute) const;
    // The same as a name. Fails when it is none.
    CIMName NameAttribute(pugi::xml_node element, const char* attribute) const;

    // The text of an element that holds text only, or one CDATA section only.
    std::string Text(pugi::xml_node element) const;

    // Fails where the bytes are not UTF-8.
    String ToString(pugi::xml_node element, std::string_view bytes) const;

    // "Validation error: on line N: " + what
    [[noreturn]] void Fail(pugi::xml_node element, const std::string& what) const;

private:
    void RequireDeclaration() const;
    void Parse();
    void RequireBounded(pugi::xml_node element, std::string_view text) const;
    std::string Resolve(pugi::xml_node element, std::string_view raw) const;
    std::size_t Line(std::ptrdiff_t offset) const;

    std::string& m_text;
    pugi::xml_document m_document;
};

// Walks an element's children in order: each is either the one that is asked for or a failure.
class XmlChildren {
public:
    XmlChildren(const XmlDocument& document, pugi::xml_node parent)
        : m_document(document), m_parent(parent), m_next(parent.first_child()) {}

    // The next child if it has this name, else null.
    pugi::xml_node If(const char* name);
    // Fails when the next child has another name or there is none.
    pugi::xml_node Expect(const char* name);
    // Fails when there is a next child.
    void End() const;
    bool AtEnd() const { return !m_next; }

    [[noreturn]] void FailExpecting(const char* what) const;

private:
    const XmlDocument& m_document;
    pugi::xml_node m_parent;
    pugi::xml_node m_next;
};

}  // namespace Pegasus::Internal

#endif
