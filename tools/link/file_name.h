// The names of a camera's pseudo-files, from a client's side: a kind, '?', then key=value pairs that
// each end with ';'. Pure functions.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace plendix::link {

enum class Kind { other, register_read, register_write, jpeg, h264 };

/// Sensor pixels; right and bottom exclusive.
struct Area {
    int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
    int width() const { return x1 - x0; }
    int height() const { return y1 - y0; }
    bool operator==(const Area& other) const {
        return x0 == other.x0 && y0 == other.y0 && x1 == other.x1 && y1 == other.y1;
    }
};

/// What a name asks for; what it does not say is as here.
struct FileName {
    Kind kind = Kind::other;
    int number = -1;  // of the register
    int value = -1;   // to be written
    bool half = false;
    Area area;
    int quality = -1;  // JPEG, on the wire's scale: 2 to 20
    int qp = -1;       // H.264
    bool key = false;  // a key frame is asked for
    long ssn = -1;     // stream sequence number
    bool picture() const { return kind == Kind::jpeg || kind == Kind::h264; }
};

/// Any text gives something: what is no name of a camera's file is of kind `other`.
FileName parse_file_name(const std::string& text);

std::string register_name(int number);
std::string register_name(int number, std::uint16_t value);
/// Of a picture, as the driver would ask for it.
std::string picture_name(const FileName& picture);

}  // namespace plendix::link
