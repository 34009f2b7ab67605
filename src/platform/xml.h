// Building XML elements, and their attributes that are integers or points in time.
#pragma once

#include "platform/datetime.h"

class TiXmlElement;
class TiXmlNode;

// Appends a new, empty element, which the parent owns.
TiXmlElement& AddElement(TiXmlNode& parent, const char* name);

// Appends the empty declaration that every document of the plug-in begins with.
void AddDeclaration(TiXmlNode& document);

// Reads an attribute as a decimal integer, ignoring what follows the digits. False, with value
// untouched, when it is absent, does not begin with an integer or does not fit an int.
bool QueryInt(const TiXmlElement& element, const char* name, int& value);

// True, with flag set, when the attribute is an integer: any but 0 reads as true.
bool QueryFlag(const TiXmlElement& element, const char* name, bool& flag);

// True when the attribute is present and an integer equal to value.
bool HasInt(const TiXmlElement& element, const char* name, int value);

// Sets "Time" (Unix seconds, cut to 32 bits) and "Milliseconds".
void SetTime(TiXmlElement& element, pt::datetime time);
