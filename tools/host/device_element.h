// The Device element of a configuration document, for those who build one.
#pragma once

#include "host/camera_settings.h"

class TiXmlElement;
class TiXmlNode;

namespace plendix {

/// Appends an element, which the parent owns.
TiXmlElement* add_element(TiXmlNode* parent, const char* name);
TiXmlElement* add_numbered(TiXmlNode* parent, const char* name, int number);

/// A Device in the Devices element, which has to live longer: appended with the first part that is written.
/// Each part gives all of its attributes, the driver's default where nothing is wanted, and so puts back
/// what was set.
class DeviceElement {
public:
    DeviceElement(TiXmlElement* devices, int number) : devices_(devices), number_(number) {}

    void remove();
    void write_all(const CameraSettings& camera);  // all that follows
    void write_link(const CameraSettings& camera);
    void write_name(const CameraSettings& camera);
    /// Starts the stream afresh.
    void write_stream(const CameraSettings& camera);
    void write_terminals(const CameraSettings& camera);

    /// The values that the camera itself holds, as far as they are wanted. The sensitivity ends the
    /// transfer under way, no value starts the stream afresh.
    void write_picture(const CameraSettings& camera);

private:
    TiXmlElement* device();  // made when missing, as are the others
    TiXmlElement* input();
    TiXmlElement* channel();

    TiXmlElement* devices_;
    int number_;
    TiXmlElement* device_ = nullptr;
    TiXmlElement* input_ = nullptr;
    TiXmlElement* channel_ = nullptr;
};

}  // namespace plendix
