#include "record/config_file.h"

#include <algorithm>
#include <sstream>

#include "host/command_values.h"
#include "record/config_table.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr int most_cameras = 255;
constexpr std::size_t longest_name = 64;  // bytes
constexpr std::chrono::milliseconds second{1000};

/// What a parser of command values throws gets the place where the value stands.
template <class Parser>
auto parse(const ConfigTable& table, const std::string& key, const std::string& text, Parser parser) {
    try {
        return parser(text);
    } catch (const UsageError& error) {
        const std::string text_of_error = error.what();
        const bool named = text_of_error.compare(0, key.size(), key) == 0;
        table.refuse(key, named ? text_of_error : key + ": " + text_of_error);
    }
}

template <class Value>
void set(Value& value, const std::optional<Value>& given) {
    if (given) value = *given;
}

void read_name(const ConfigTable& table, const std::string& key, std::string& name) {
    const auto text = table.text(key);
    if (!text) return;
    const bool printable = std::none_of(text->begin(), text->end(),
                                        [](unsigned char byte) { return byte < ' ' || byte == 0x7F; });
    if (!printable) table.refuse(key, key + " has control characters: one line of text is right");
    if (text->empty() || text->size() > longest_name) {
        table.refuse(key, key + " has " + std::to_string(text->size()) + " bytes: 1 to 64 are right");
    }
    name = *text;
}

void read_crop(const ConfigTable& camera, Crop& crop) {
    const auto table = camera.table("crop");
    if (!table) return;
    constexpr int whole = 10000;
    set(crop.left, table->number("left", 0, whole));
    set(crop.top, table->number("top", 0, whole));
    set(crop.width, table->number("width", 1, whole));
    set(crop.height, table->number("height", 1, whole));
    table->finish();
    for (const auto& [edge, side, name] : {std::tuple{crop.left, crop.width, "left and width"},
                                           std::tuple{crop.top, crop.height, "top and height"}}) {
        if (edge + side <= whole) continue;
        camera.refuse("crop", std::string("crop: ") + name + " are " + std::to_string(edge + side) +
                                  " together, not at most 10000");
    }
}

/// The lines of a mask without the blanks around them, and without those that end the text.
std::vector<std::string> mask_rows(const std::string& text) {
    std::vector<std::string> rows;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t begin = line.find_first_not_of(" \t\r");
        const std::size_t end = line.find_last_not_of(" \t\r");
        rows.push_back(begin == std::string::npos ? "" : line.substr(begin, end - begin + 1));
    }
    while (!rows.empty() && rows.back().empty())
        rows.pop_back();
    return rows;
}

std::string row_fault(const std::string& row, std::size_t index) {
    const std::string place = "row " + std::to_string(index + 1) + " of the mask ";
    const std::size_t bad = row.find_first_not_of("#.");
    if (bad != std::string::npos) {
        return place + "has a '" + row.substr(bad, 1) + "': # is a zone that counts, . one that does not";
    }
    return row.size() == 8 ? "" : place + "has " + std::to_string(row.size()) + " zones, not 8";
}

void read_mask(const ConfigTable& table, std::optional<MotionMask>& mask) {
    const auto text = table.text("mask");
    if (!text) return;
    const std::vector<std::string> rows = mask_rows(*text);
    MotionMask zones{};
    bool whole = true;
    for (std::size_t row = 0; row < rows.size() && row < 8; ++row) {
        const std::string fault = row_fault(rows[row], row);
        if (!fault.empty()) table.refuse("mask", fault, static_cast<unsigned>(row));
        for (std::size_t column = 0; column < 8; ++column)
            zones[row][column] = rows[row][column] == '#';
        whole = whole && rows[row] == "########";
    }
    if (rows.size() != 8) table.refuse("mask", "mask has " + std::to_string(rows.size()) + " rows, not 8");
    mask = whole ? std::nullopt : std::optional(zones);
}

void read_terminal(const ConfigTable& camera, const char* key, const char* polarity, std::string& name,
                   bool& inverted) {
    const auto table = camera.table(key);
    if (!table) return;
    read_name(*table, "name", name);
    set(inverted, table->flag(polarity));
    table->finish();
}

void read_picture(const ConfigTable& table, CameraSettings& camera) {
    constexpr int most = 255;
    for (const auto& [key, value] :
         {std::pair{"brightness", &camera.brightness}, std::pair{"saturation", &camera.saturation},
          std::pair{"sharpness", &camera.sharpness}}) {
        if (const auto given = table.number(key, 1, most)) *value = given;
    }
    if (const auto given = table.number("sensitivity", 1, 10)) camera.sensitivity = given;
}

/// What holds for one camera or, in [defaults], for all.
void read_settings(const ConfigTable& table, CameraSettings& camera) {
    set(camera.enabled, table.flag("enabled"));
    if (const auto codec = table.text("codec")) camera.codec = parse(table, "codec", *codec, parse_codec);
    if (const auto size = table.text("size")) {
        std::tie(camera.width, camera.height) = parse(table, "size", *size, parse_size);
    }
    set(camera.rate, table.number("rate", 1, 60));
    set(camera.quality, table.number("quality", 1, 10));
    read_picture(table, camera);
    read_crop(table, camera.crop);
    read_mask(table, camera.mask);
    read_terminal(table, "trigger", "normally_closed", camera.trigger_name, camera.trigger_normally_closed);
    read_terminal(table, "relay", "normally_low", camera.relay_name, camera.relay_normally_low);
}

CameraSettings read_defaults(const ConfigTable& root) {
    CameraSettings defaults;
    const auto table = root.table("defaults");
    if (!table) return defaults;
    for (const char* key : {"number", "address", "name"}) {
        if (table->quantity(key)) {
            table->refuse(key, std::string(key) + " is each camera's own: it stands in its [[camera]]");
        }
    }
    read_settings(*table, defaults);
    table->finish();
    return defaults;
}

CameraSettings read_camera(const ConfigTable& table, const CameraSettings& defaults, int position) {
    CameraSettings camera = defaults;
    camera.number = table.number("number", 1, most_cameras).value_or(position);
    camera.name = "Camera " + std::to_string(camera.number);
    const auto address = table.text("address");
    if (address) camera.address = parse(table, "address", *address, parse_address);
    read_name(table, "name", camera.name);
    read_settings(table, camera);
    table.finish();
    if (!address) table.refuse("", "a camera needs an address, as in address = \"192.168.1.20\"");
    return camera;
}

/// Two cameras need two numbers and, as long as they are on, two addresses; the driver's log lines tell
/// cameras apart by name only.
void require_new(const ConfigTable& table, const CameraSettings& camera,
                 const std::vector<CameraSettings>& others) {
    for (const auto& other : others) {
        const std::string with = " is camera " + std::to_string(other.number) + "'s, too";
        if (camera.number == other.number) {
            table.refuse("number", "number " + std::to_string(camera.number) + " is taken by camera '" +
                                       other.name + "': numbers differ, without one it is the position");
        }
        const bool both_on = camera.enabled && other.enabled;
        if (both_on && camera.address == other.address)
            table.refuse("address", "address " + camera.address + with);
        if (camera.name == other.name) table.refuse("name", "name '" + camera.name + "'" + with);
    }
}

std::vector<CameraSettings> read_cameras(const ConfigTable& root) {
    const CameraSettings defaults = read_defaults(root);
    std::vector<CameraSettings> cameras;
    for (const ConfigTable& table : root.tables("camera")) {
        if (cameras.size() == most_cameras) table.refuse("", "more than 255 cameras");
        const CameraSettings camera = read_camera(table, defaults, static_cast<int>(cameras.size()) + 1);
        require_new(table, camera, cameras);
        cameras.push_back(camera);
    }
    const auto by_number = [](const auto& one, const auto& other) { return one.number < other.number; };
    std::sort(cameras.begin(), cameras.end(), by_number);
    return cameras;
}

void read_duration(const ConfigTable& table, const char* key, std::chrono::milliseconds& value,
                   std::chrono::milliseconds least = {}) {
    const auto text = table.quantity(key);
    if (!text) return;
    value = parse(table, key, *text, parse_duration);
    if (value.count() > 0 && value < least) {
        table.refuse(key, std::string(key) + " '" + *text + "' is under a second");
    }
}

bool read_local_names(const ConfigTable& table) {
    const auto names = table.text("names");
    if (names && *names != "utc" && *names != "local") {
        table.refuse("names", "names '" + *names + "' is neither utc nor local");
    }
    return names == "local";
}

RecordOptions read_options(const ConfigTable& root) {
    RecordOptions options;
    const auto table = root.table("record");
    if (!table) return options;
    if (const auto output = table->text("output")) options.output = *output;
    if (const auto state = table->text("state")) options.state = *state;
    if (options.output.empty()) table->refuse("output", "output is empty: name a folder");
    if (const auto plugin = table->text("plugin")) options.plugin = *plugin;
    read_duration(*table, "duration", options.duration);
    read_duration(*table, "segment", options.segment, second);
    read_duration(*table, "keep", options.keep, second);
    read_duration(*table, "motion_hold", options.motion_hold);
    if (const auto size = table->quantity("keep_size")) {
        options.keep_size = parse(*table, "keep_size", *size, parse_bytes);
    }
    set(options.keep_per_camera, table->flag("keep_per_camera"));
    options.local_names = read_local_names(*table);
    set(options.replace, table->flag("replace"));
    if (const auto check = table->flag("check")) options.check = check;
    set(options.quiet, table->flag("quiet"));
    set(options.verbose, table->flag("verbose"));
    set(options.all_events, table->flag("all_events"));
    table->finish();
    return options;
}

}  // namespace

RecorderConfig read_config(const std::filesystem::path& file) {
    const ConfigTable root = ConfigTable::read(file);
    RecorderConfig config{read_options(root), root.table("record").has_value(), read_cameras(root)};
    root.finish();
    if (config.cameras.empty()) {
        throw UsageError(file.string() + ": no camera: each has a [[camera]] with its address");
    }
    return config;
}

}  // namespace plendix
