// Texts that are read byte by byte: the motion mask, the frame trailer, and the
// look at XML before it is parsed, held against the tree that TinyXML really builds.
#include <tinyxml.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "fuzz.h"
#include "input/input.h"
#include "input/mask.h"
#include "platform/xml_text.h"

namespace {

void Mask(const std::string& text) {
    unsigned char mask[24 + 1] = {};
    mask[24] = 0xA5;
    const unsigned int decoded = uu_decode(text.data(), static_cast<unsigned int>(text.size()), mask, 24);
    char again[32];
    require(mask[24] == 0xA5 && uu_encode(mask, decoded, again, 32) == decoded / 3 * 4);
}

void Trailer(Input& input) {
    CInput picture(1, 0);
    const std::string block(input.word() % 2000, 'p');
    const auto size = static_cast<unsigned short>(std::max<std::size_t>(block.size(), 1));
    for (unsigned short number = 0; number < 4; ++number)
        picture.Response(block.data(), static_cast<int>(block.size()), size, number);
    const std::string trailer = input.bytes(200);
    const std::vector<char> exact(trailer.begin(), trailer.end());
    picture.Response(exact.data(), static_cast<int>(exact.size()), size, 4);
}

std::size_t Nesting(const TiXmlNode& node) {
    std::size_t deepest = 0;
    for (const TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling())
        deepest = std::max(deepest, Nesting(*child));
    return deepest + (node.ToElement() != nullptr ? 1 : 0);
}

std::size_t Attributes(const TiXmlNode& node) {
    std::size_t most = 0;
    const TiXmlElement* const element = node.ToElement();
    for (const TiXmlAttribute* attribute = element != nullptr ? element->FirstAttribute() : nullptr;
         attribute != nullptr; attribute = attribute->Next())
        ++most;
    for (const TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling())
        most = std::max(most, Attributes(*child));
    return most;
}

// Limits that small texts reach: what TinyXML builds of the whole text exceeds them when, and only
// when, the guard says so, and what it builds of the part that may be parsed never does.
void Guard(const std::string& text, TiXmlEncoding encoding) {
    const XmlLimits limits = {4, 3};
    const auto within = [&](std::string part) {
        TiXmlDocument document;
        document.Parse(part.append(4, '\0').c_str(), nullptr, encoding);
        return Nesting(document) <= limits.nesting && Attributes(document) <= limits.attributes;
    };
    const XmlVerdict verdict = ExamineXml(text, encoding, limits);
    require(within(text) == (verdict.problem == nullptr) ||
            verdict.problem == std::string("incomplete character"));
    require(within(text.substr(0, verdict.length)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::uint8_t kind = input.byte();
    if (kind % 4 == 0) Trailer(input);
    const std::string text = input.bytes(size);
    if (kind % 4 == 1) Mask(text);
    constexpr TiXmlEncoding encodings[] = {TIXML_ENCODING_UTF8, TIXML_ENCODING_UNKNOWN,
                                           TIXML_ENCODING_LEGACY};
    if (kind % 4 == 2) Guard(text, encodings[kind / 4 % 3]);
    if (kind % 4 != 3 || text.empty()) return 0;
    const std::vector<char> exact(text.begin(), text.end());
    TiXmlDocument document;
    ParseGuarded(document, exact.data(), exact.size());
    require(Nesting(document) <= MaxNesting);
    require(Attributes(document) <= MaxAttributes);
    return 0;
}
