#include "host/device_element.h"

#include <tinyxml.h>

#include "host/document_builder.h"
#include "host/mask_code.h"

namespace plendix {
namespace {

constexpr int default_quality = 4;
constexpr int standard_h264 = 5;

const char* or_default(const std::string& name, const char* fallback) {
    return name.empty() ? fallback : name.c_str();
}

void set_if_wanted(TiXmlElement* element, const char* name, const std::optional<int>& value) {
    if (value) element->SetAttribute(name, *value);
}

void add_crop(TiXmlElement* channel, const Crop& crop) {
    TiXmlElement* element = add_element(channel, "Crop");
    element->SetAttribute("Left", crop.left);
    element->SetAttribute("Top", crop.top);
    element->SetAttribute("Width", crop.width);
    element->SetAttribute("Height", crop.height);
}

}  // namespace

TiXmlElement* add_element(TiXmlNode* parent, const char* name) {
    return parent->LinkEndChild(new TiXmlElement(name))->ToElement();
}

TiXmlElement* add_numbered(TiXmlNode* parent, const char* name, int number) {
    TiXmlElement* element = add_element(parent, name);
    element->SetAttribute("Number", number);
    return element;
}

void DeviceElement::remove() {
    device()->SetAttribute("ipAddress", "");
}

void DeviceElement::write_all(const CameraSettings& camera) {
    write_link(camera);
    write_name(camera);
    write_stream(camera);
    write_terminals(camera);
}

void DeviceElement::write_link(const CameraSettings& camera) {
    device()->SetAttribute("Enabled", camera.enabled ? 1 : 0);
    device()->SetAttribute("ipAddress", camera.address.c_str());
}

void DeviceElement::write_name(const CameraSettings& camera) {
    input()->SetAttribute("Name", or_default(camera.name, "Camera"));
}

void DeviceElement::write_stream(const CameraSettings& camera) {
    // A camera without a wanted size picks its own codec, so a wanted codec needs a size.
    const int fallback = has_own_shape(camera) ? 0 : whole_sensor;
    TiXmlElement* element = channel();
    element->SetAttribute("Enabled", 1);
    element->SetAttribute("Width", camera.width != 0 ? camera.width : fallback);
    element->SetAttribute("Height", camera.height != 0 ? camera.height : fallback);
    element->SetAttribute("Standard", camera.codec == Codec::h264 ? standard_h264 : 0);
    element->SetAttribute("Framerate", camera.rate);
    element->SetAttribute("Quality", camera.quality != 0 ? camera.quality : default_quality);
    element->SetAttribute("Mask", mask_code(camera.mask).c_str());
    add_crop(element, camera.crop);
}

void DeviceElement::write_terminals(const CameraSettings& camera) {
    TiXmlElement* trigger = add_element(device(), "Trigger");
    TiXmlElement* element = add_numbered(trigger, "Input", 0);
    element->SetAttribute("Name", or_default(camera.trigger_name, "Trigger"));
    element->SetAttribute("NormallyClosed", camera.trigger_normally_closed ? 1 : 0);
    element = add_numbered(trigger, "Output", 0);
    element->SetAttribute("Name", or_default(camera.relay_name, "Alarm"));
    element->SetAttribute("NormallyLow", camera.relay_normally_low ? 1 : 0);
}

void DeviceElement::write_picture(const CameraSettings& camera) {
    if (camera.brightness || camera.saturation || camera.sharpness) {
        set_if_wanted(input(), "Brightness", camera.brightness);
        set_if_wanted(input(), "Saturation", camera.saturation);
        set_if_wanted(input(), "Sharpness", camera.sharpness);
    }
    if (camera.sensitivity) set_if_wanted(channel(), "Sensitivity", camera.sensitivity);
}

TiXmlElement* DeviceElement::device() {
    if (device_ == nullptr) device_ = add_numbered(devices_, "Device", number_);
    return device_;
}

TiXmlElement* DeviceElement::input() {
    if (input_ == nullptr) input_ = add_numbered(add_element(device(), "Video"), "Input", 0);
    return input_;
}

TiXmlElement* DeviceElement::channel() {
    if (channel_ == nullptr) {
        TiXmlElement* encoder = add_numbered(add_element(device(), "Codec"), "Encoder", 0);
        channel_ = add_numbered(encoder, "Channel", 0);
    }
    return channel_;
}

}  // namespace plendix
