// Building XML elements and walking over them, and their attributes that are integers or points in
// time.
#pragma once

#include <tinyxml.h>

#include "platform/datetime.h"

// Appends a new, empty element, which the parent owns.
TiXmlElement& AddElement(TiXmlNode& parent, const char* name);

// Appends the empty declaration that every document of the plug-in begins with.
void AddDeclaration(TiXmlNode& document);

// Calls use(child) for every child element of the name, in order; parent may be null.
template <class Use>
void ForEach(TiXmlNode* parent, const char* name, Use use) {
    if (parent == nullptr) return;
    for (TiXmlElement* child = parent->FirstChildElement(name); child != nullptr;
         child = child->NextSiblingElement(name))
        use(*child);
}

// Reads an attribute as a decimal integer, ignoring what follows the digits; one beyond 32 bits is
// the largest or the smallest there is. False, with value untouched, when it is absent or does not
// begin with an integer.
bool QueryInt(const TiXmlElement& element, const char* name, int& value);

// True, with flag set, when the attribute is an integer: any but 0 reads as true.
bool QueryFlag(const TiXmlElement& element, const char* name, bool& flag);

// True when the attribute is present and an integer equal to value.
bool HasInt(const TiXmlElement& element, const char* name, int value);

// Sets "Time" (Unix seconds, cut to 32 bits) and "Milliseconds".
void SetTime(TiXmlElement& element, pt::datetime time);
