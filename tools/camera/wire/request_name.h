// The pseudo-file names: a kind, '?', then key=value pairs that each end with ';'.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>

namespace plendix::camera {

/// Sensor pixels, right and bottom exclusive.
struct Area {
    int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
    int width() const { return x1 - x0; }
    int height() const { return y1 - y0; }
    bool operator==(const Area& other) const {
        return x0 == other.x0 && y0 == other.y0 && x1 == other.x1 && y1 == other.y1;
    }
};

/// getreg?page=3;reg=N; and, with a value, setreg?page=3;reg=N;val=V;
struct RegisterRequest {
    int number = 0;
    std::optional<std::uint16_t> value;
};

/// image?... (JPEG) and h264?...
struct PictureRequest {
    bool h264 = false;
    bool half = false;  // half resolution
    Area area;          // clamped to the sensor, not empty
    int quality = 8;    // JPEG: 0 to 26, 20 is the finest of the named ones
    int qp = 29;        // H.264: 1 to 51
    bool key = false;   // a key frame is asked for
    unsigned ssn = 0;   // stream sequence number; another one begins another group

    bool operator==(const PictureRequest& other) const;  // `key` apart: the same stream
};

using NamedRequest = std::variant<RegisterRequest, PictureRequest>;

/// Keys that mean nothing here are ignored. Throws Refused when the name is of no kind, lacks
/// a key that it needs, or carries a value out of range.
NamedRequest parse_name(const std::string& name, const Area& sensor);

}  // namespace plendix::camera
