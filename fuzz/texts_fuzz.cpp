// Texts that are read byte by byte: the motion mask, the frame trailer, and the
// look at XML before it is parsed.
#include <tinyxml.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "fuzz.h"
#include "input/input.h"
#include "input/mask.h"
#include "plugin/xml_guard.h"

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

int Nesting(const TiXmlNode& node) {
    int deepest = 0;
    for (const TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling())
        deepest = std::max(deepest, Nesting(*child));
    return deepest + (node.ToElement() != nullptr ? 1 : 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::uint8_t kind = input.byte();
    if (kind % 4 == 0) Trailer(input);
    const std::string text = input.bytes(size);
    if (kind % 4 == 1) Mask(text);
    if (kind % 4 < 2 || text.empty()) return 0;
    const std::vector<char> exact(text.begin(), text.end());
    TiXmlDocument document;
    ParseGuarded(document, exact.data(), exact.size());
    require(Nesting(document) <= MaxNesting);
    return 0;
}
