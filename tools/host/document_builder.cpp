#include "host/document_builder.h"

#include <tinyxml.h>

#include "plugin/host_records.h"

namespace plendix {
namespace {

constexpr int last_camera = 255;

TiXmlElement* add(TiXmlNode* parent, const char* name) {
    return parent->LinkEndChild(new TiXmlElement(name))->ToElement();
}

TiXmlElement* add_numbered(TiXmlNode* parent, const char* name, int number) {
    TiXmlElement* element = add(parent, name);
    element->SetAttribute("Number", number);
    return element;
}

/// The envelope of every document; returns the block that takes the Device elements.
TiXmlElement* add_envelope(TiXmlDocument& document, bool change) {
    document.LinkEndChild(new TiXmlDeclaration("", "", ""));
    TiXmlElement* root = add(&document, "Velm");
    if (change) root->SetAttribute("Delta", 1);
    TiXmlElement* devices = add(root, "Devices");
    devices->SetAttribute("ID", static_cast<int>(PluginId));
    return devices;
}

std::string text_of(const TiXmlDocument& document) {
    std::string text;
    text << document;
    return text;
}

void set_if_given(TiXmlElement* element, const char* name, int value) {
    if (value != 0) element->SetAttribute(name, value);
}

void add_stream(TiXmlElement* device, const CameraSettings& camera) {
    TiXmlElement* encoder = add_numbered(add(device, "Codec"), "Encoder", 0);
    TiXmlElement* channel = add_numbered(encoder, "Channel", 0);
    channel->SetAttribute("Enabled", 1);
    // A camera without a wanted size picks its own codec, so a wanted codec needs a size.
    const int fallback = camera.codec == Codec::camera_default ? 0 : whole_sensor;
    set_if_given(channel, "Width", camera.width != 0 ? camera.width : fallback);
    set_if_given(channel, "Height", camera.height != 0 ? camera.height : fallback);
    if (camera.codec != Codec::camera_default) {
        channel->SetAttribute("Standard", camera.codec == Codec::h264 ? 5 : 0);
    }
    set_if_given(channel, "Framerate", camera.rate);
    set_if_given(channel, "Quality", camera.quality);
}

void add_camera(TiXmlElement* devices, const CameraSettings& camera) {
    TiXmlElement* device = add_numbered(devices, "Device", camera.number);
    device->SetAttribute("Enabled", 1);
    device->SetAttribute("ipAddress", camera.address.c_str());
    add_numbered(add(device, "Video"), "Input", 0)->SetAttribute("Name", camera.name.c_str());
    add_stream(device, camera);
}

/// An action begins without an end; one that is over ends at once.
void set_end(TiXmlElement* element) {
    element->SetAttribute("Time", 0);
    element->SetAttribute("Milliseconds", 0);
}

}  // namespace

std::string configure_document(const std::vector<CameraSettings>& cameras) {
    TiXmlDocument document;
    TiXmlElement* devices = add_envelope(document, true);
    for (const auto& camera : cameras)
        add_camera(devices, camera);
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
    TiXmlElement* output = add_numbered(add(device, "Trigger"), "Output", 0);
    set_end(output);
    output->SetAttribute("Action", action);
    output->SetAttribute("Alarm", active ? 1 : 0);
    return text_of(document);
}

std::string recording_document(int camera, int action, bool active) {
    TiXmlDocument document;
    TiXmlElement* device = add_numbered(add_envelope(document, false), "Device", camera);
    TiXmlElement* input = add_numbered(add(device, "Video"), "Input", 0);
    input->SetAttribute("Context", 0);
    set_end(input);
    input->SetAttribute("Action", action);
    input->SetAttribute("Record", active ? 1 : 0);
    return text_of(document);
}

}  // namespace plendix
