// What a recording tells people: a line per second while it runs, a table at its end.
#pragma once

#include <chrono>
#include <iosfwd>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "record/camera_recorder.h"
#include "record/decode_check.h"

namespace plendix {

using Recorders = std::map<int, CameraRecorder>;  // by camera number

/// The live line: frames and lost blocks so far, rates since the line before.
class LiveLine {
public:
    std::string next(std::chrono::milliseconds elapsed, const Recorders& recorders);

private:
    struct Before {
        std::uint64_t frames = 0;
        std::uint64_t bytes = 0;
    };

    std::chrono::milliseconds before_{0};
    std::map<int, Before> cameras_;
};

/// One row of the table.
struct Row {
    const CameraRecorder* camera = nullptr;
    std::optional<DecodeResult> decode;  // of all files; nothing when not checked
};

void print_table(std::ostream& out, const std::vector<Row>& rows);

}  // namespace plendix
