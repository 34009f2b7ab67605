// What a recording tells people at its end.
#pragma once

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "host/camera_state.h"
#include "record/decode_check.h"
#include "record/record_totals.h"

namespace plendix {

/// One camera.
struct Row {
    CameraState state;
    RecordTotals totals;
    std::optional<DecodeResult> decode;  // of all files; nothing when not checked
    std::string diagnosis;               // of its address; empty when it was not asked
};

/// Rates are over the whole time in which the camera was watched, until `end`.
void print_table(std::ostream& out, const std::vector<Row>& rows, CameraState::Time end);

/// The cameras that need somebody, each with what to do next, and what was not recorded: in lines
/// of at most so many columns, without a terminal of any length.
void print_remarks(std::ostream& out, const std::vector<Row>& rows, CameraState::Time end,
                   std::optional<std::size_t> columns = std::nullopt);

}  // namespace plendix
