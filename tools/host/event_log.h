// Writes events for programs: events.jsonl.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "host/event.h"

namespace plendix {

/// "2026-11-22T21:11:00.123Z"
std::string utc_text(std::int64_t time_ms);

/// One JSON object without a line end: time, camera, kind, values.
std::string json_line(const Event& event);

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
