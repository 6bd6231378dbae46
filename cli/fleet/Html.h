// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_HTML_H
#define KEMFFDC_FLEET_HTML_H

#include <pugixml.hpp>
#include <string>

namespace Kemffdc::Fleet {

// Pieces of HTML are put together as nodes of a document, so that every text is escaped: whatever a
// BMC says of itself stays a text.

// A new element at the end of `parent`; and one that holds a text.
pugi::xml_node Add(pugi::xml_node parent, const char* name, const std::string& classes = "");
pugi::xml_node AddWith(pugi::xml_node parent, const char* name, const std::string& text,
                       const std::string& classes = "");
void AddText(pugi::xml_node parent, const std::string& text);

void Set(pugi::xml_node element, const char* attribute, const std::string& value);

// A time as people read it: "1:52", "2:03:04".
std::string DurationText(double seconds);

// A coordinate, to a tenth: "12.5", "12".
std::string Tenths(double number);
void Set(pugi::xml_node element, const char* attribute, double value);

// One of the symbols of the page, before a text that says the same: "done", "failed" ...
void AddIcon(pugi::xml_node parent, const std::string& state);

std::string CodeOf(const pugi::xml_document& piece);

// For a place in the page that holds a plain text.
std::string Escaped(const std::string& text);

}  // namespace Kemffdc::Fleet

#endif
