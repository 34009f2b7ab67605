// Reading elements of the plug-in's documents; an element may always be null.
#pragma once

#include <tinyxml.h>

#include <array>
#include <string>

namespace plendix {

inline int number_of(const TiXmlElement* element, const char* name, int fallback = 0) {
    int value = fallback;
    if (element != nullptr) element->QueryIntAttribute(name, &value);
    return value;
}

inline std::string word_of(const TiXmlElement* element, const char* name) {
    const char* value = element == nullptr ? nullptr : element->Attribute(name);
    return value == nullptr ? "" : value;
}

using ElementPath = std::array<const char*, 3>;  // names of nested elements, unused ones null

inline const TiXmlElement* below(const TiXmlElement* element, const ElementPath& path) {
    for (const char* name : path) {
        if (element == nullptr || name == nullptr) break;
        element = element->FirstChildElement(name);
    }
    return element;
}

/// Calls use(child) for every child element of the name.
template <class Use>
void for_each(const TiXmlElement& parent, const char* name, Use use) {
    for (const TiXmlElement* child = parent.FirstChildElement(name); child != nullptr;
         child = child->NextSiblingElement(name))
        use(*child);
}

}  // namespace plendix
