#include "serve/settings_json.h"

#include <algorithm>
#include <array>
#include <tuple>

#include "host/command_values.h"
#include "host/plain_text.h"
#include "nearest_word.h"
#include "usage.h"

namespace plendix {
namespace {

using nlohmann::json;
using nlohmann::ordered_json;

constexpr std::size_t longest_name = 64;  // bytes
constexpr int whole_side = 10000;

[[noreturn]] void refuse(const std::string& key, const json& value, const std::string& right) {
    const std::string text = value.dump(-1, ' ', false, json::error_handler_t::replace);
    throw UsageError(key + ' ' + cut(printable(text), 40) + ": " + right);
}

int number(const std::string& key, const json& value, int least, int most) {
    if (value.is_number_integer()) {
        const auto given = value.get<std::int64_t>();
        if (given >= least && given <= most) return static_cast<int>(given);
    }
    refuse(key, value, "give a whole number from " + std::to_string(least) + " to " + std::to_string(most));
}

bool flag(const std::string& key, const json& value) {
    if (!value.is_boolean()) refuse(key, value, "give true or false");
    return value.get<bool>();
}

std::string text(const std::string& key, const json& value) {
    if (!value.is_string()) refuse(key, value, "give a text");
    return value.get<std::string>();
}

std::string name(const std::string& key, const json& value) {
    std::string given = text(key, value);
    const bool one_line = std::none_of(given.begin(), given.end(),
                                       [](unsigned char byte) { return byte < ' ' || byte == 0x7F; });
    if (given.empty() || given.size() > longest_name || !one_line)
        refuse(key, value, "give one line of 1 to 64 bytes");
    return given;
}

Codec codec(const json& value) {
    return value.is_null() ? Codec::camera_default : parse_codec(text("codec", value));
}

void take_size(const json& value, CameraSettings& camera) {
    camera.width = camera.height = 0;
    if (!value.is_null()) std::tie(camera.width, camera.height) = parse_size(text("size", value));
}

Crop crop(const json& value) {
    Crop result;
    if (value.is_null()) return result;
    if (!value.is_object()) refuse("crop", value, "give left, top, width and height");
    for (const auto& [key, side] : value.items()) {
        if (key == "left")
            result.left = number("crop left", side, 0, whole_side);
        else if (key == "top")
            result.top = number("crop top", side, 0, whole_side);
        else if (key == "width")
            result.width = number("crop width", side, 1, whole_side);
        else if (key == "height")
            result.height = number("crop height", side, 1, whole_side);
        else
            refuse("crop", value, "it has left, top, width and height");
    }
    if (result.left + result.width > whole_side || result.top + result.height > whole_side)
        refuse("crop", value, "it reaches beyond 10000");
    return result;
}

std::optional<MotionMask> mask(const json& value) {
    if (value.is_null()) return std::nullopt;
    MotionMask zones{};
    bool whole = true;
    if (!value.is_array() || value.size() != zones.size()) refuse("mask", value, "give 8 rows");
    for (std::size_t row = 0; row < zones.size(); ++row) {
        const std::string marks = text("mask", value[row]);
        if (marks.size() != zones[row].size() || marks.find_first_not_of("#.") != std::string::npos)
            refuse("mask", value[row], "a row has 8 of # (counts) and . (does not)");
        for (std::size_t column = 0; column < marks.size(); ++column)
            zones[row][column] = marks[column] == '#';
        whole = whole && marks.find('.') == std::string::npos;
    }
    return whole ? std::nullopt : std::optional(zones);
}

void take_terminal(const std::string& key, const char* polarity, const json& value, std::string& title,
                   bool& inverted) {
    if (value.is_null()) {
        title.clear();
        inverted = false;
        return;
    }
    if (!value.is_object()) refuse(key, value, std::string("give name and ") + polarity);
    for (const auto& [part, given] : value.items()) {
        if (part == "name")
            title = given.is_null() ? "" : name(key + " name", given);
        else if (part == polarity)
            inverted = flag(key + ' ' + polarity, given);
        else
            refuse(key, value, std::string("it has name and ") + polarity);
    }
}

int number_or(int none, const std::string& key, const json& value, int most) {
    return value.is_null() ? none : number(key, value, 1, most);
}

std::optional<int> wish(const std::string& key, const json& value, int most) {
    return value.is_null() ? std::nullopt : std::optional(number(key, value, 1, most));
}

struct Setting {
    const char* name;
    void (*take)(const json& value, CameraSettings& camera);
};

constexpr std::array<Setting, 15> settings{{
    {"enabled", [](const json& value, CameraSettings& camera) { camera.enabled = flag("enabled", value); }},
    {"name", [](const json& value, CameraSettings& camera) { camera.name = name("name", value); }},
    {"address", [](const json& value,
                   CameraSettings& camera) { camera.address = parse_address(text("address", value)); }},
    {"codec", [](const json& value, CameraSettings& camera) { camera.codec = codec(value); }},
    {"size", take_size},
    {"rate",
     [](const json& value, CameraSettings& camera) { camera.rate = number_or(0, "rate", value, 60); }},
    {"quality",
     [](const json& value, CameraSettings& camera) { camera.quality = number_or(0, "quality", value, 10); }},
    {"crop", [](const json& value, CameraSettings& camera) { camera.crop = crop(value); }},
    {"brightness",
     [](const json& value, CameraSettings& camera) { camera.brightness = wish("brightness", value, 255); }},
    {"saturation",
     [](const json& value, CameraSettings& camera) { camera.saturation = wish("saturation", value, 255); }},
    {"sharpness",
     [](const json& value, CameraSettings& camera) { camera.sharpness = wish("sharpness", value, 255); }},
    {"sensitivity",
     [](const json& value, CameraSettings& camera) { camera.sensitivity = wish("sensitivity", value, 10); }},
    {"mask", [](const json& value, CameraSettings& camera) { camera.mask = mask(value); }},
    {"trigger",
     [](const json& value, CameraSettings& camera) {
         take_terminal("trigger", "normally_closed", value, camera.trigger_name,
                       camera.trigger_normally_closed);
     }},
    {"relay",
     [](const json& value, CameraSettings& camera) {
         take_terminal("relay", "normally_low", value, camera.relay_name, camera.relay_normally_low);
     }},
}};

const Setting& setting_of(const std::string& key) {
    std::vector<std::string> known;
    for (const Setting& setting : settings) {
        if (key == setting.name) return setting;
        known.emplace_back(setting.name);
    }
    const std::string near = nearest_word(key, known);
    throw UsageError("setting '" + cut(printable(key), 40) + "' is not known" +
                     (near.empty() ? "" : ": did you mean '" + near + "'?"));
}

ordered_json or_null(int value) {
    return value == 0 ? ordered_json() : ordered_json(value);
}

ordered_json or_null(const std::optional<int>& value) {
    return value ? ordered_json(*value) : ordered_json();
}

ordered_json mask_json(const std::optional<MotionMask>& mask) {
    if (!mask) return nullptr;
    ordered_json rows = ordered_json::array();
    for (const auto& row : *mask) {
        std::string marks;
        for (const bool zone : row)
            marks += zone ? '#' : '.';
        rows.push_back(marks);
    }
    return rows;
}

ordered_json codec_json(Codec codec) {
    if (codec == Codec::camera_default) return nullptr;
    return codec == Codec::h264 ? "h264" : "jpeg";
}

ordered_json text_or_null(const std::string& text) {
    return text.empty() ? ordered_json() : ordered_json(text);
}

}  // namespace

ordered_json settings_json(const CameraSettings& camera) {
    const bool sized = camera.width != 0 && camera.height != 0;
    return {
        {"enabled", camera.enabled},
        {"name", camera.name},
        {"address", camera.address},
        {"codec", codec_json(camera.codec)},
        {"size", sized ? ordered_json(std::to_string(camera.width) + 'x' + std::to_string(camera.height))
                       : ordered_json()},
        {"rate", or_null(camera.rate)},
        {"quality", or_null(camera.quality)},
        {"crop",
         {{"left", camera.crop.left},
          {"top", camera.crop.top},
          {"width", camera.crop.width},
          {"height", camera.crop.height}}},
        {"brightness", or_null(camera.brightness)},
        {"saturation", or_null(camera.saturation)},
        {"sharpness", or_null(camera.sharpness)},
        {"sensitivity", or_null(camera.sensitivity)},
        {"mask", mask_json(camera.mask)},
        {"trigger",
         {{"name", text_or_null(camera.trigger_name)}, {"normally_closed", camera.trigger_normally_closed}}},
        {"relay", {{"name", text_or_null(camera.relay_name)}, {"normally_low", camera.relay_normally_low}}}};
}

CameraSettings patched(const CameraSettings& camera, const json& patch) {
    if (!patch.is_object()) refuse("settings", patch, "give an object of settings");
    CameraSettings result = camera;
    for (const auto& [key, value] : patch.items())
        setting_of(key).take(value, result);
    return result;
}

void require_distinct(const std::vector<CameraSettings>& cameras, const CameraSettings& before,
                      const CameraSettings& changed) {
    const bool moved = changed.enabled && !(before.enabled && before.address == changed.address);
    const bool renamed = before.name != changed.name;
    for (const CameraSettings& other : cameras) {
        if (other.number == changed.number) continue;
        const std::string with = " is camera " + std::to_string(other.number) + "'s, too";
        if (moved && other.enabled && other.address == changed.address)
            throw UsageError("address " + changed.address + with);
        if (renamed && other.name == changed.name)
            throw UsageError("name '" + printable(changed.name) + "'" + with);
    }
}

std::vector<std::string> differing(const CameraSettings& wanted, const CameraSettings& reported) {
    const ordered_json all = settings_json(wanted);
    const ordered_json real = settings_json(reported);
    std::vector<std::string> names;
    for (const auto& [name, value] : all.items()) {
        const bool compared = name != "trigger" && name != "relay" && !value.is_null();
        if (compared && value != real.at(name)) names.push_back(name);
    }
    const auto other_title = [](const std::string& title, const std::string& told) {
        return !title.empty() && title != told;
    };
    if (other_title(wanted.trigger_name, reported.trigger_name) ||
        wanted.trigger_normally_closed != reported.trigger_normally_closed)
        names.emplace_back("trigger");
    if (other_title(wanted.relay_name, reported.relay_name) ||
        wanted.relay_normally_low != reported.relay_normally_low)
        names.emplace_back("relay");
    return names;
}

std::vector<std::string> changed_names(const CameraSettings& before, const CameraSettings& after) {
    const ordered_json old = settings_json(before);
    const ordered_json fresh = settings_json(after);
    std::vector<std::string> names;
    for (const auto& [name, value] : fresh.items())
        if (value != old.at(name)) names.push_back(name);
    return names;
}

}  // namespace plendix
