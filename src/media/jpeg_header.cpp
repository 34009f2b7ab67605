#include "media/jpeg_header.h"

#include <cstdint>
#include <initializer_list>

#include "media/jpeg_tables.h"

namespace {

using Bytes = std::vector<unsigned char>;

void Append(Bytes& header, std::initializer_list<unsigned char> bytes) {
    header.insert(header.end(), bytes);
}

// Quality 20, the finest requested, departs from the line that the others lie on.
float ScaleFactor(unsigned char quality) {
    if (quality == 20) return 0.825F;
    return static_cast<float>(3.25 - 0.125 * (quality - 1));
}

// Single precision throughout, as the cameras scale their tables.
unsigned char QuantiserEntry(std::int32_t base, float factor) {
    const float scaled = static_cast<float>(base) * factor;
    const float rounded = scaled + 0.5F;
    return rounded > 0 ? static_cast<unsigned char>(static_cast<std::uint32_t>(rounded)) : 0;
}

void AppendQuantiser(Bytes& header, unsigned char id, const std::int32_t (&base)[64], float factor) {
    header.push_back(id);
    for (const std::int32_t index : jpeg::zigzag_index)
        header.push_back(QuantiserEntry(base[index], factor));
}

void AppendDqt(Bytes& header, float factor) {
    Append(header, {0xFF, 0xDB, 0x00, 0x84});
    AppendQuantiser(header, 0, jpeg::std_qtables[1], factor);
    AppendQuantiser(header, 1, jpeg::std_qtables[0], factor);
}

void AppendDri(Bytes& header) {
    Append(header, {0xFF, 0xDD, 0x00, 0x04, 0x00, 0x10});
}

void AppendDimension(Bytes& header, int pixels) {
    header.push_back(static_cast<unsigned char>(pixels / 256));
    header.push_back(static_cast<unsigned char>(pixels % 256));
}

void AppendSof(Bytes& header, int width, int height) {
    Append(header, {0xFF, 0xC0, 0x00, 0x11, 0x08});
    AppendDimension(header, height);
    AppendDimension(header, width);
    // Three components; 2x1 luminance samples for one of each chrominance.
    Append(header, {0x03, 0x01, 0x21, 0x00, 0x02, 0x11, 0x01, 0x03, 0x11, 0x01});
}

template <std::size_t Count>
void AppendHuffman(Bytes& header, unsigned char id, const std::uint8_t (&bits)[17],
                   const std::uint8_t (&values)[Count]) {
    header.push_back(id);
    header.insert(header.end(), bits + 1, bits + 17);
    header.insert(header.end(), values, values + Count);
}

void AppendDht(Bytes& header) {
    Append(header, {0xFF, 0xC4, 0x01, 0xA2});
    AppendHuffman(header, 0x00, jpeg::bits_dc_luminance, jpeg::val_dc_luminance);
    AppendHuffman(header, 0x10, jpeg::bits_ac_luminance, jpeg::val_ac_luminance);
    AppendHuffman(header, 0x01, jpeg::bits_dc_chrominance, jpeg::val_dc_chrominance);
    AppendHuffman(header, 0x11, jpeg::bits_ac_chrominance, jpeg::val_ac_chrominance);
}

void AppendSos(Bytes& header) {
    Append(header, {0xFF, 0xDA, 0x00, 0x0C, 0x03, 0x01, 0x00, 0x02, 0x11, 0x03, 0x11, 0x00, 0x3F, 0x00});
}

}  // namespace

void CalculateHeader(std::vector<unsigned char>& header, int width, int height, unsigned char quality) {
    header.reserve(header.size() + JpegHeaderSize);
    Append(header, {0xFF, 0xD8});
    AppendDqt(header, ScaleFactor(quality));
    AppendDri(header);
    AppendSof(header, width, height);
    AppendDht(header);
    AppendSos(header);
}
