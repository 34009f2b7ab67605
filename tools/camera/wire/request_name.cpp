#include "camera/wire/request_name.h"

#include <algorithm>

#include "camera/wire/packet.h"

namespace plendix::camera {

namespace {

constexpr int greatest_coordinate = 65535;  // coordinates travel as 16-bit words

using Values = std::map<std::string, std::string>;

Values parse_values(const std::string& text) {
    Values values;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find(';', begin), text.size());
        const std::string pair = text.substr(begin, end - begin);
        const std::size_t equals = pair.find('=');
        if (equals == std::string::npos)
            throw Refused(ErrorCode::not_found, "'" + pair + "' is not key=value");
        values[pair.substr(0, equals)] = pair.substr(equals + 1);
        begin = end + 1;
    }
    return values;
}

[[noreturn]] void refuse(const std::string& key, const std::string& value, const std::string& right) {
    throw Refused(ErrorCode::not_found, key + "=" + value + ": expected " + right);
}

/// The value of a key, or `missing` when the name does not carry it.
int number(const Values& values, const std::string& key, int least, int greatest,
           std::optional<int> missing) {
    const auto found = values.find(key);
    if (found == values.end() && missing) return *missing;
    const std::string text = found == values.end() ? "" : found->second;
    const bool digits = !text.empty() && text.size() <= 9 &&
                        std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    const int value = digits ? std::stoi(text) : -1;
    if (value < least || value > greatest)
        refuse(key, text,
               std::to_string(least) + (greatest > least ? " to " + std::to_string(greatest) : ""));
    return value;
}

RegisterRequest parse_register(const Values& values, bool write) {
    RegisterRequest request;
    number(values, "page", 3, 3, std::nullopt);
    request.number = number(values, "reg", 0, 65535, std::nullopt);
    if (write) request.value = static_cast<std::uint16_t>(number(values, "val", 0, 65535, std::nullopt));
    return request;
}

Area parse_area(const Values& values, const Area& sensor) {
    Area area;
    area.x0 = std::max(number(values, "x0", 0, greatest_coordinate, sensor.x0), sensor.x0);
    area.y0 = std::max(number(values, "y0", 0, greatest_coordinate, sensor.y0), sensor.y0);
    area.x1 = std::min(number(values, "x1", 0, greatest_coordinate, sensor.x1), sensor.x1);
    area.y1 = std::min(number(values, "y1", 0, greatest_coordinate, sensor.y1), sensor.y1);
    if (area.x0 >= area.x1 || area.y0 >= area.y1)
        throw Refused(ErrorCode::not_found, "the requested area is empty or outside the sensor");
    return area;
}

PictureRequest parse_picture(const Values& values, bool h264, const Area& sensor) {
    PictureRequest request;
    request.h264 = h264;
    const auto resolution = values.find("res");
    if (resolution != values.end()) {
        request.half = resolution->second == "half";
        if (!request.half && resolution->second != "full") refuse("res", resolution->second, "full or half");
    }
    request.area = parse_area(values, sensor);
    if (h264) {
        request.qp = number(values, "qp", 1, 51, 29);
        request.key = number(values, "iframe", 0, 1, 0) == 1;
        request.ssn = static_cast<unsigned>(number(values, "ssn", 0, 65535, 0));
    } else {
        request.quality = number(values, "quality", 0, 26, 8);  // 27 and above leave empty tables
    }
    return request;
}

}  // namespace

bool PictureRequest::operator==(const PictureRequest& other) const {
    return h264 == other.h264 && half == other.half && area == other.area && quality == other.quality &&
           qp == other.qp && ssn == other.ssn;
}

NamedRequest parse_name(const std::string& name, const Area& sensor) {
    const std::size_t begin = name.rfind('/', 0) == 0 ? 1 : 0;  // foreign clients may ask for a path
    const std::size_t mark = name.find('?', begin);
    const std::string kind = name.substr(begin, mark - begin);
    const bool known = kind == "getreg" || kind == "setreg" || kind == "image" || kind == "h264";
    if (!known || mark == std::string::npos)
        throw Refused(ErrorCode::not_found, "no such file: " + name + " (getreg?, setreg?, image? or h264?)");
    const Values values = parse_values(name.substr(mark + 1));
    if (kind == "getreg" || kind == "setreg") return parse_register(values, kind == "setreg");
    return parse_picture(values, kind == "h264", sensor);
}

}  // namespace plendix::camera
