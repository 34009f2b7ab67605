// Settings as the text of a configuration file.
#include <array>
#include <cstdio>
#include <sstream>

#include "record/config_file.h"

namespace plendix {
namespace {

/// In quotes, as TOML has it.
std::string quoted(const std::string& text) {
    std::string result = "\"";
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < ' ' || byte == 0x7F) {
            std::array<char, 8> escaped{};
            std::snprintf(escaped.data(), escaped.size(), "\\u%04X", unsigned{byte});
            result += escaped.data();
            continue;
        }
        if (character == '"' || character == '\\') result += '\\';
        result += character;
    }
    return result + '"';
}

const char* word(bool flag) {
    return flag ? "true" : "false";
}

void write_stream(std::ostream& out, const CameraSettings& camera) {
    if (camera.codec != Codec::camera_default) {
        out << "codec = \"" << (camera.codec == Codec::h264 ? "h264" : "jpeg") << "\"\n";
    }
    if (camera.width != 0 && camera.height != 0) {
        out << "size = \"" << camera.width << 'x' << camera.height << "\"\n";
    }
    if (camera.rate > 0) out << "rate = " << camera.rate << '\n';
    if (camera.quality > 0) out << "quality = " << camera.quality << '\n';
    const Crop& crop = camera.crop;
    if (crop == Crop{}) return;
    out << "crop = { left = " << crop.left << ", top = " << crop.top << ", width = " << crop.width
        << ", height = " << crop.height << " }\n";
}

void write_mask(std::ostream& out, const MotionMask& mask) {
    out << "mask = \"\"\"\n";
    for (const auto& row : mask) {
        for (const bool zone : row)
            out << (zone ? '#' : '.');
        out << '\n';
    }
    out << "\"\"\"\n";
}

void write_terminal(std::ostream& out, const char* key, const std::string& name, const char* polarity,
                    bool inverted) {
    if (name.empty() && !inverted) return;
    out << key << " = { ";
    if (!name.empty()) out << "name = " << quoted(name) << ", ";
    out << polarity << " = " << word(inverted) << " }\n";
}

void write_camera(std::ostream& out, const CameraSettings& camera) {
    out << "[[camera]]\nnumber = " << camera.number << "\naddress = " << quoted(camera.address) << '\n';
    if (!camera.name.empty()) out << "name = " << quoted(camera.name) << '\n';
    if (!camera.enabled) out << "enabled = false\n";
    write_stream(out, camera);
    const std::pair<const char*, const std::optional<int>&> values[] = {{"brightness", camera.brightness},
                                                                        {"saturation", camera.saturation},
                                                                        {"sharpness", camera.sharpness},
                                                                        {"sensitivity", camera.sensitivity}};
    for (const auto& [key, value] : values)
        if (value) out << key << " = " << *value << '\n';
    if (camera.mask) write_mask(out, *camera.mask);
    write_terminal(out, "trigger", camera.trigger_name, "normally_closed", camera.trigger_normally_closed);
    write_terminal(out, "relay", camera.relay_name, "normally_low", camera.relay_normally_low);
}

}  // namespace

std::string config_text(const std::vector<CameraSettings>& cameras,
                        const std::map<int, std::string>& remarks) {
    std::ostringstream out;
    for (const auto& camera : cameras) {
        if (&camera != &cameras.front()) out << '\n';
        const auto remark = remarks.find(camera.number);
        if (remark != remarks.end()) out << "# " << remark->second << '\n';
        write_camera(out, camera);
    }
    return out.str();
}

}  // namespace plendix
