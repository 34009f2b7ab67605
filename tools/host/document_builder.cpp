#include "host/document_builder.h"

#include <tinyxml.h>

#include <map>

#include "host/device_element.h"
#include "plugin/host_records.h"

namespace plendix {
namespace {

constexpr int last_camera = 255;

/// The envelope of every document; returns the block that takes the Device elements.
TiXmlElement* add_envelope(TiXmlDocument& document, bool change) {
    document.LinkEndChild(new TiXmlDeclaration("", "", ""));
    TiXmlElement* root = add_element(&document, "Velm");
    if (change) root->SetAttribute("Delta", 1);
    TiXmlElement* devices = add_element(root, "Devices");
    devices->SetAttribute("ID", static_cast<int>(PluginId));
    return devices;
}

std::string text_of(const TiXmlDocument& document) {
    std::string text;
    text << document;
    return text;
}

std::string text_or_nothing(const TiXmlDocument& document, const TiXmlElement& devices) {
    return devices.NoChildren() ? std::string() : text_of(document);
}

bool same_picture(const CameraSettings& one, const CameraSettings& other) {
    return one.brightness == other.brightness && one.saturation == other.saturation &&
           one.sharpness == other.sharpness && one.sensitivity == other.sensitivity;
}

bool same_stream(const CameraSettings& one, const CameraSettings& other) {
    return one.codec == other.codec && one.rate == other.rate && one.quality == other.quality &&
           one.width == other.width && one.height == other.height && one.crop == other.crop &&
           one.mask == other.mask;
}

bool same_terminals(const CameraSettings& one, const CameraSettings& other) {
    return one.trigger_name == other.trigger_name && one.relay_name == other.relay_name &&
           one.trigger_normally_closed == other.trigger_normally_closed &&
           one.relay_normally_low == other.relay_normally_low;
}

/// The driver keeps to half resolution when a wanted size is taken back.
bool needs_new_device(const CameraSettings& before, const CameraSettings& after) {
    return before.address != after.address || (has_own_shape(after) && !has_own_shape(before));
}

void add_change(TiXmlElement* devices, const CameraSettings& before, const CameraSettings& after) {
    if (before == after) return;
    if (needs_new_device(before, after)) {
        DeviceElement(devices, before.number).remove();
        DeviceElement(devices, after.number).write_all(after);
        return;
    }
    DeviceElement device(devices, after.number);
    if (before.enabled != after.enabled) device.write_link(after);
    if (before.name != after.name) device.write_name(after);
    if (!same_stream(before, after)) device.write_stream(after);
    if (!same_terminals(before, after)) device.write_terminals(after);
    if (!same_picture(before, after)) device.write_picture(after);
}

std::map<int, const CameraSettings*> by_number(const std::vector<CameraSettings>& cameras) {
    std::map<int, const CameraSettings*> numbers;
    for (const auto& camera : cameras)
        numbers[camera.number] = &camera;
    return numbers;
}

/// An action begins without an end; one that is over ends at once.
void set_end(TiXmlElement* element) {
    element->SetAttribute("Time", 0);
    element->SetAttribute("Milliseconds", 0);
}

}  // namespace

bool has_own_shape(const CameraSettings& camera) {
    return camera.codec == Codec::camera_default && camera.width == 0 && camera.height == 0;
}

std::string configure_document(const std::vector<CameraSettings>& cameras) {
    TiXmlDocument document;
    TiXmlElement* devices = add_envelope(document, true);
    for (const auto& camera : cameras)
        DeviceElement(devices, camera.number).write_all(camera);
    return text_of(document);
}

std::string picture_document(const CameraSettings& camera) {
    TiXmlDocument document;
    TiXmlElement* devices = add_envelope(document, true);
    DeviceElement(devices, camera.number).write_picture(camera);
    return text_or_nothing(document, *devices);
}

std::string change_document(const std::vector<CameraSettings>& before,
                            const std::vector<CameraSettings>& after) {
    TiXmlDocument document;
    TiXmlElement* devices = add_envelope(document, true);
    const auto old_ones = by_number(before);
    const auto new_ones = by_number(after);
    for (const auto& [number, camera] : old_ones)
        if (new_ones.count(number) == 0) DeviceElement(devices, number).remove();
    for (const auto& [number, camera] : new_ones) {
        const auto old = old_ones.find(number);
        if (old == old_ones.end())
            DeviceElement(devices, number).write_all(*camera);
        else
            add_change(devices, *old->second, *camera);
    }
    return text_or_nothing(document, *devices);
}

std::string query_document(int camera) {
    TiXmlDocument document;
    add_element(add_numbered(add_envelope(document, true), "Device", camera), "Trigger");
    return text_of(document);
}

std::string remove_all_document() {
    TiXmlDocument document;
    TiXmlElement* devices = add_envelope(document, true);
    for (int number = 1; number <= last_camera; ++number) {
        add_numbered(devices, "Device", number)->SetAttribute("ipAddress", "");
    }
    return text_of(document);
}

std::string relay_document(int camera, int action, bool active) {
    TiXmlDocument document;
    TiXmlElement* device = add_numbered(add_envelope(document, false), "Device", camera);
    TiXmlElement* output = add_numbered(add_element(device, "Trigger"), "Output", 0);
    set_end(output);
    output->SetAttribute("Action", action);
    output->SetAttribute("Alarm", active ? 1 : 0);
    return text_of(document);
}

std::string recording_document(int camera, int action, bool active) {
    TiXmlDocument document;
    TiXmlElement* device = add_numbered(add_envelope(document, false), "Device", camera);
    TiXmlElement* input = add_numbered(add_element(device, "Video"), "Input", 0);
    input->SetAttribute("Context", 0);
    set_end(input);
    input->SetAttribute("Action", action);
    input->SetAttribute("Record", active ? 1 : 0);
    return text_of(document);
}

}  // namespace plendix
