#include "input/mask.h"

#include <algorithm>

namespace {

char Character(unsigned int group) {
    return static_cast<char>(32 + group);
}

unsigned int Group(char character) {
    return (static_cast<unsigned char>(character) - 32U) & 0xFF;
}

unsigned char Byte(unsigned int bits) {
    return static_cast<unsigned char>(bits & 0xFF);
}

}  // namespace

unsigned int uu_encode(const unsigned char* source, unsigned int length, char* destination,
                       unsigned int capacity) {
    const unsigned int groups = std::min(length / 3, capacity / 4);
    for (unsigned int i = 0; i < groups; ++i, source += 3, destination += 4) {
        const unsigned int b0 = source[0];
        const unsigned int b1 = source[1];
        const unsigned int b2 = source[2];
        destination[0] = Character(b0 >> 2);
        destination[1] = Character((b0 & 3) << 4 | b1 >> 4);
        destination[2] = Character((b1 & 15) << 2 | b2 >> 6);
        destination[3] = Character(b2 & 63);
    }
    return groups * 4;
}

unsigned int uu_decode(const char* source, unsigned int length, unsigned char* destination,
                       unsigned int capacity) {
    const unsigned int groups = std::min(length / 4, capacity / 3);
    for (unsigned int i = 0; i < groups; ++i, source += 4, destination += 3) {
        const unsigned int d0 = Group(source[0]);
        const unsigned int d1 = Group(source[1]);
        const unsigned int d2 = Group(source[2]);
        const unsigned int d3 = Group(source[3]);
        destination[0] = Byte(d0 << 2 | d1 >> 4);
        destination[1] = Byte(d1 << 4 | d2 >> 2);
        destination[2] = Byte(d2 << 6 | d3);
    }
    return groups * 3;
}
