// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Html.h"

#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <sstream>

#include "cli/terminal/Text.h"

namespace Kemffdc::Fleet {

pugi::xml_node Add(pugi::xml_node parent, const char* name, const std::string& classes) {
    pugi::xml_node element = parent.append_child(name);
    if (!classes.empty()) Set(element, "class", classes);
    return element;
}

pugi::xml_node AddWith(pugi::xml_node parent, const char* name, const std::string& text,
                       const std::string& classes) {
    const pugi::xml_node element = Add(parent, name, classes);
    AddText(element, text);
    return element;
}

void AddText(pugi::xml_node parent, const std::string& text) {
    parent.append_child(pugi::node_pcdata).set_value(ValidUtf8(text).c_str());
}

void Set(pugi::xml_node element, const char* attribute, const std::string& value) {
    element.append_attribute(attribute).set_value(ValidUtf8(value).c_str());
}

std::string DurationText(double seconds) {
    return Elapsed(std::chrono::milliseconds(std::llround(seconds * 1000)));
}

std::string Tenths(double number) {
    std::array<char, 64> text{};
    (void)std::snprintf(text.data(), text.size(), "%.1f", number);
    const std::string tenths = text.data();
    const std::size_t whole = tenths.size() - 2;
    return tenths.substr(whole) == ".0" ? tenths.substr(0, whole) : tenths;
}

void Set(pugi::xml_node element, const char* attribute, double value) {
    Set(element, attribute, Tenths(value));
}

void AddIcon(pugi::xml_node parent, const std::string& state) {
    const pugi::xml_node icon = Add(parent, "svg", "icon " + state);
    Set(icon, "aria-hidden", "true");
    Set(Add(icon, "use"), "href", "#is-" + state);
}

std::string CodeOf(const pugi::xml_document& piece) {
    std::ostringstream code;
    piece.print(code, "",
                pugi::format_raw | pugi::format_no_declaration | pugi::format_no_empty_element_tags,
                pugi::encoding_utf8);
    return code.str();
}

std::string Escaped(const std::string& text) {
    pugi::xml_document piece;
    AddText(Add(piece, "p"), text);
    const std::string code = CodeOf(piece);
    return code.substr(3, code.size() - 7);  // without <p> and </p>
}

}  // namespace Kemffdc::Fleet
