#include "platform/xml.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

TiXmlElement& AddElement(TiXmlNode& parent, const char* name) {
    auto* const element = new TiXmlElement(name);
    parent.LinkEndChild(element);
    return *element;
}

void AddDeclaration(TiXmlNode& document) {
    document.LinkEndChild(new TiXmlDeclaration("", "", ""));
}

bool QueryInt(const TiXmlElement& element, const char* name, int& value) {
    const char* text = element.Attribute(name);
    if (text == nullptr) return false;
    char* end = nullptr;
    const long number = std::strtol(text, &end, 10);
    if (end == text) return false;
    value = static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));
    return true;
}

bool QueryFlag(const TiXmlElement& element, const char* name, bool& flag) {
    int value = 0;
    if (!QueryInt(element, name, value)) return false;
    flag = value != 0;
    return true;
}

bool HasInt(const TiXmlElement& element, const char* name, int value) {
    int found = 0;
    return QueryInt(element, name, found) && found == value;
}

void SetTime(TiXmlElement& element, pt::datetime time) {
    element.SetAttribute("Time", static_cast<int>(pt::unixseconds(time)));
    element.SetAttribute("Milliseconds", pt::milliseconds(time));
}
