// Events as programs read them: events.jsonl. Any thread.
#pragma once

#include <cstdint>
#include <string>

#include "host/event.h"

namespace plendix {

/// "2026-11-22T21:11:00.123Z"
std::string utc_text(std::int64_t time_ms);

/// One JSON object without a line end: time, camera, kind, values.
std::string json_line(const Event& event);

}  // namespace plendix
