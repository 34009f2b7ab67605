// Reads the documents that the plug-in sends.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "host/event.h"

class TiXmlElement;

namespace plendix {

/// Turns documents into events. It remembers the configuration: each document repeats that of
/// all cameras, and log lines name their camera by its name or address only.
class DocumentReader {
public:
    /// One event per fact, and per camera whose configuration changed (none if none did). A text
    /// that is no known document gives one unknown event.
    std::vector<Event> read(const std::string& text, std::int64_t arrival_ms);

private:
    Event read_device(const TiXmlElement& device, std::int64_t arrival_ms);
    Event read_log(const TiXmlElement& root, std::int64_t arrival_ms) const;
    std::vector<Event> read_configuration(const TiXmlElement& devices, std::int64_t arrival_ms);
    int camera_of_line(const std::string& line, std::string& rest) const;

    std::map<std::string, int> names_;  // camera numbers by name and by address
    std::map<int, nlohmann::ordered_json> configurations_;
};

/// The camera of which the document tells that its video begins; 0 for any other document.
int connected_camera(const std::string& text);

}  // namespace plendix
