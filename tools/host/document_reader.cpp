#include "host/document_reader.h"

#include <array>
#include <regex>
#include <string>

#include "host/document_builder.h"
#include "host/xml_query.h"

namespace plendix {
namespace {

/// Until the plug-in knows the sensor it repeats the side that was asked for: 0 as long as that is none.
int known_side(const TiXmlElement* channel, const char* name) {
    const int side = number_of(channel, name);
    return side == whole_sensor ? 0 : side;
}

std::int64_t time_of(const TiXmlElement& element, std::int64_t arrival_ms) {
    int seconds = 0;
    if (element.QueryIntAttribute("Time", &seconds) != TIXML_SUCCESS) return arrival_ms;
    // Connections come with whole seconds: within that second the arrival is as good a time.
    if (element.Attribute("Milliseconds") == nullptr && arrival_ms / 1000 == seconds) return arrival_ms;
    return std::int64_t{seconds} * 1000 + number_of(&element, "Milliseconds");
}

struct Fact {
    ElementPath path;       // below Device
    const char* attribute;  // its presence makes the fact
    EventKind kind;
    const char* value;
};

/// Reads the alarm document's one fact; false when the device element holds none.
bool read_fact(const TiXmlElement& device, std::int64_t arrival_ms, Event& event) {
    const std::array<Fact, 4> facts{{
        {{"Video", "Input"}, "Motion", EventKind::motion, "active"},
        {{"Codec", "Encoder", "Channel"}, "Connected", EventKind::connection, "connected"},
        {{"Trigger", "Input"}, "Alarm", EventKind::trigger, "active"},
        {{"Trigger", "Output"}, "Alarm", EventKind::relay, "active"},
    }};
    for (const Fact& fact : facts) {
        const TiXmlElement* element = below(&device, fact.path);
        if (element == nullptr || element->Attribute(fact.attribute) == nullptr) continue;
        event.time_ms = time_of(*element, arrival_ms);
        event.camera = number_of(&device, "Number");
        event.kind = fact.kind;
        event.values[fact.value] = number_of(element, fact.attribute) != 0;
        return true;
    }
    return false;
}

Event unknown(const std::string& text, std::int64_t arrival_ms) {
    Event event{arrival_ms, 0, EventKind::unknown};
    event.values["text"] = text;
    return event;
}

Event read_version(const TiXmlElement& module, std::int64_t arrival_ms) {
    Event event{arrival_ms, 0, EventKind::version};
    event.values["name"] = word_of(&module, "Name");
    event.values["version"] = word_of(&module, "Version");
    return event;
}

/// What the driver's log lines say of a camera's link.
void note_failure(const std::string& rest, Event& event) {
    if (rest == " timeout") event.values["timeout"] = true;
    static const std::regex lost(" - did not receive block ([0-9]{1,5}) of ([0-9]{1,5})");
    std::smatch found;
    if (!std::regex_match(rest, found, lost)) return;
    event.values["lost_block"] = std::stoi(found[1]);
    event.values["of"] = std::stoi(found[2]);
}

}  // namespace

std::vector<Event> DocumentReader::read(const std::string& text, std::int64_t arrival_ms) {
    TiXmlDocument document;
    document.Parse(text.c_str());
    const TiXmlElement* root = document.FirstChildElement();
    if (document.Error() || root == nullptr) return {unknown(text, arrival_ms)};
    if (root->ValueStr() == "log_msg") return {read_log(*root, arrival_ms)};
    if (const auto* module = below(root, {"Modules", "Module"})) return {read_version(*module, arrival_ms)};
    const TiXmlElement* devices = root->FirstChildElement("Devices");
    if (devices == nullptr) return {unknown(text, arrival_ms)};
    if (root->Attribute("Delta") != nullptr) return read_configuration(*devices, arrival_ms);

    std::vector<Event> events;
    const char* const name = "Device";
    for (auto* device = devices->FirstChildElement(name); device != nullptr;
         device = device->NextSiblingElement(name)) {
        Event event;
        if (read_fact(*device, arrival_ms, event)) events.push_back(event);
    }
    if (events.empty()) return {unknown(text, arrival_ms)};
    return events;
}

std::vector<Event> DocumentReader::read_configuration(const TiXmlElement& devices, std::int64_t arrival_ms) {
    names_.clear();
    std::vector<Event> events;
    std::map<int, nlohmann::ordered_json> now;
    const char* const name = "Device";
    for (auto* device = devices.FirstChildElement(name); device != nullptr;
         device = device->NextSiblingElement(name)) {
        Event event = read_device(*device, arrival_ms);
        now[event.camera] = event.values;
        const auto before = configurations_.find(event.camera);
        if (before == configurations_.end() || before->second != event.values) events.push_back(event);
    }
    for (const auto& [camera, values] : configurations_) {
        if (now.count(camera) > 0) continue;
        events.push_back({arrival_ms, camera, EventKind::config});
        events.back().values["removed"] = true;
    }
    configurations_ = std::move(now);
    return events;
}

Event DocumentReader::read_device(const TiXmlElement& device, std::int64_t arrival_ms) {
    const TiXmlElement* input = below(&device, {"Video", "Input"});
    const TiXmlElement* channel = below(&device, {"Codec", "Encoder", "Channel"});
    Event event{arrival_ms, number_of(&device, "Number"), EventKind::config};
    names_[word_of(input, "Name")] = event.camera;
    names_[word_of(&device, "ipAddress")] = event.camera;
    event.values = {{"name", word_of(input, "Name")},
                    {"address", word_of(&device, "ipAddress")},
                    {"enabled", number_of(&device, "Enabled") != 0},
                    {"model", number_of(&device, "Name")},
                    {"firmware", number_of(&device, "Firmware")},
                    {"serial", word_of(&device, "Serial")},
                    {"codec", number_of(channel, "Standard") == 0 ? "jpeg" : "h264"},
                    {"width", known_side(channel, "Width")},
                    {"height", known_side(channel, "Height")},
                    {"framerate", number_of(channel, "Framerate")},
                    {"quality", number_of(channel, "Quality")}};
    return event;
}

Event DocumentReader::read_log(const TiXmlElement& root, std::int64_t arrival_ms) const {
    const char* text = root.GetText();
    const std::string line = text == nullptr ? "" : text;
    std::string rest;
    Event event{arrival_ms, camera_of_line(line, rest), EventKind::log};
    event.values["level"] = number_of(&root, "level");
    event.values["text"] = line;
    note_failure(rest, event);
    return event;
}

int DocumentReader::camera_of_line(const std::string& line, std::string& rest) const {
    int camera = 0;
    std::size_t longest = 0;  // "Camera 1 west" is not "Camera 1"
    for (const auto& [name, known] : names_) {
        if (name.size() <= longest || line.compare(0, name.size() + 1, name + ' ') != 0) continue;
        longest = name.size();
        camera = known;
    }
    rest = line.substr(longest);
    return camera;
}

int connected_camera(const std::string& text) {
    if (text.find(" Connected=") == std::string::npos) return 0;
    TiXmlDocument document;
    document.Parse(text.c_str());
    const TiXmlElement* device = below(document.FirstChildElement("Velm"), {"Devices", "Device"});
    const TiXmlElement* channel = below(device, {"Codec", "Encoder", "Channel"});
    return number_of(channel, "Connected") != 0 ? number_of(device, "Number") : 0;
}

}  // namespace plendix
