#include "host/configuration_reader.h"

#include "host/document_builder.h"
#include "host/mask_code.h"
#include "host/xml_query.h"

namespace plendix {
namespace {

int read_side(const TiXmlElement* channel, const char* name) {
    const int side = number_of(channel, name);
    return side == whole_sensor ? 0 : side;
}

Crop read_crop(const TiXmlElement* crop) {
    const Crop whole;
    return {number_of(crop, "Left", whole.left), number_of(crop, "Top", whole.top),
            number_of(crop, "Width", whole.width), number_of(crop, "Height", whole.height)};
}

void read_video(const TiXmlElement* input, CameraSettings& camera) {
    camera.name = word_of(input, "Name");
    camera.brightness = number_of(input, "Brightness");
    camera.saturation = number_of(input, "Saturation");
    camera.sharpness = number_of(input, "Sharpness");
}

void read_stream(const TiXmlElement* channel, CameraSettings& camera) {
    camera.width = read_side(channel, "Width");
    camera.height = read_side(channel, "Height");
    camera.codec = number_of(channel, "Standard") == 0 ? Codec::jpeg : Codec::h264;
    camera.rate = number_of(channel, "Framerate");
    camera.quality = number_of(channel, "Quality");
    camera.sensitivity = number_of(channel, "Sensitivity");
    camera.mask = read_mask_code(word_of(channel, "Mask"));
    camera.crop = read_crop(below(channel, {"Crop"}));
}

void read_terminals(const TiXmlElement* trigger, CameraSettings& camera) {
    const TiXmlElement* input = below(trigger, {"Input"});
    const TiXmlElement* output = below(trigger, {"Output"});
    camera.trigger_name = word_of(input, "Name");
    camera.trigger_normally_closed = number_of(input, "NormallyClosed") != 0;
    camera.relay_name = word_of(output, "Name");
    camera.relay_normally_low = number_of(output, "NormallyLow") != 0;
}

ReportedCamera read_camera(const TiXmlElement& device) {
    ReportedCamera camera;
    camera.settings.number = number_of(&device, "Number");
    camera.settings.address = word_of(&device, "ipAddress");
    camera.settings.enabled = number_of(&device, "Enabled") != 0;
    camera.model = number_of(&device, "Name");
    camera.firmware = number_of(&device, "Firmware");
    camera.serial = word_of(&device, "Serial");
    camera.sensor_read = below(&device, {"Codec", "Resolution"}) != nullptr;
    read_video(below(&device, {"Video", "Input"}), camera.settings);
    const TiXmlElement* channel = below(&device, {"Codec", "Encoder", "Channel"});
    read_stream(channel, camera.settings);
    camera.zone_width = read_side(channel, "MaskWidth");
    camera.zone_height = read_side(channel, "MaskHeight");
    read_terminals(below(&device, {"Trigger"}), camera.settings);
    return camera;
}

}  // namespace

std::optional<std::vector<ReportedCamera>> read_configuration(const std::string& text) {
    TiXmlDocument document;
    document.Parse(text.c_str());
    const TiXmlElement* root = document.FirstChildElement();
    const TiXmlElement* devices = below(root, {"Devices"});
    if (document.Error() || devices == nullptr || root->Attribute("Delta") == nullptr) return std::nullopt;
    std::vector<ReportedCamera> cameras;
    for_each(*devices, "Device", [&](const TiXmlElement& device) { cameras.push_back(read_camera(device)); });
    return cameras;
}

}  // namespace plendix
