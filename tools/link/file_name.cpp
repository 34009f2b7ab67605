#include "link/file_name.h"

#include <algorithm>
#include <map>

namespace plendix::link {
namespace {

constexpr std::size_t most_digits = 9;

using Values = std::map<std::string, std::string>;

Values values_of(const std::string& text) {
    Values values;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find(';', begin), text.size());
        const std::size_t equals = std::min(text.find('=', begin), end);
        if (equals < end)
            values[text.substr(begin, equals - begin)] = text.substr(equals + 1, end - equals - 1);
        begin = end + 1;
    }
    return values;
}

/// -1 where there is no such number.
int number(const Values& values, const char* key) {
    const auto found = values.find(key);
    if (found == values.end()) return -1;
    const std::string& text = found->second;
    const bool digits = !text.empty() && text.size() <= most_digits &&
                        std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    return digits ? std::stoi(text) : -1;
}

int coordinate(const Values& values, const char* key) {
    return std::clamp(number(values, key), 0, 65535);
}

void read_picture(const Values& values, FileName& name) {
    const auto resolution = values.find("res");
    name.half = resolution != values.end() && resolution->second == "half";
    name.area = {coordinate(values, "x0"), coordinate(values, "y0"), coordinate(values, "x1"),
                 coordinate(values, "y1")};
    name.quality = number(values, "quality");
    name.qp = number(values, "qp");
    name.key = number(values, "iframe") > 0;
    name.ssn = number(values, "ssn");
}

}  // namespace

FileName parse_file_name(const std::string& text) {
    FileName name;
    const std::size_t question = text.find('?');
    if (question == std::string::npos) return name;
    const std::string kind = text.substr(0, question);
    const Values values = values_of(text.substr(question + 1));
    if (kind == "getreg" || kind == "setreg") {
        name.number = number(values, "reg");
        if (kind == "setreg") name.value = number(values, "val");
        if (name.number >= 0) name.kind = kind == "getreg" ? Kind::register_read : Kind::register_write;
    } else if (kind == "image" || kind == "h264") {
        name.kind = kind == "image" ? Kind::jpeg : Kind::h264;
        read_picture(values, name);
    }
    return name;
}

std::string register_name(int number) {
    return "getreg?page=3;reg=" + std::to_string(number) + ';';
}

std::string register_name(int number, std::uint16_t value) {
    return "setreg?page=3;reg=" + std::to_string(number) + ";val=" + std::to_string(value) + ';';
}

std::string picture_name(const FileName& picture) {
    const auto pair = [](const char* key, long value) {
        return std::string(key) + '=' + std::to_string(value) + ';';
    };
    const Area& area = picture.area;
    const std::string what = std::string("?res=") + (picture.half ? "half;" : "full;") + pair("x0", area.x0) +
                             pair("y0", area.y0) + pair("x1", area.x1) + pair("y1", area.y1);
    if (picture.kind == Kind::jpeg)
        return "image" + what + pair("quality", picture.quality) + "doublescan=0;";
    return "h264" + what + pair("qp", picture.qp) + pair("iframe", picture.key ? 1 : 0) +
           pair("ssn", picture.ssn);
}

}  // namespace plendix::link
