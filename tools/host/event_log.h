// Writes events: events.jsonl for programs, one line each on the terminal for people.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iosfwd>
#include <map>
#include <string>

#include "host/event.h"

namespace plendix {

/// "2026-11-22T21:11:00.123Z"
std::string utc_text(std::int64_t time_ms);

/// One JSON object without a line end: time, camera, kind, values.
std::string json_line(const Event& event);

/// The same for people; of a configuration only what matters to them.
std::string human_line(const Event& event);

/// The events that people see as they come. The driver repeats configurations for changes that do
/// not show in their lines: each line comes once, until the camera's next one differs.
class ScreenLog {
public:
    void write(std::ostream& out, const Event& event);

private:
    std::map<int, std::string> settings_;  // by camera, as printed last
};

/// The file of all events; every line is on its way to the disk when `write` returns.
class EventLog {
public:
    /// Replaces the file. Throws Failure when it cannot be written.
    explicit EventLog(const std::filesystem::path& file);
    void write(const Event& event);

private:
    std::filesystem::path path_;
    std::ofstream file_;
};

}  // namespace plendix
