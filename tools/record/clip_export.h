// Cuts a span of time out of a recording, without decoding it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>

namespace plendix {

struct ClipPlan {
    std::filesystem::path folder;
    int camera = 0;
    std::int64_t from_ms = 0;  // UTC since 1970; the clip begins with the key frame at or before it
    std::int64_t to_ms = 0;    // not included
    std::filesystem::path output;
    bool replace = false;  // the output may exist
    bool utc = false;      // for times in messages
};

struct Clip {
    std::uint64_t frames = 0;
    std::int64_t first_ms = 0;  // times of the first and the last frame
    std::int64_t last_ms = 0;
};

/// Whether nobody wants the clip any more; asked for each frame.
using Stopped = std::function<bool()>;

/// Writes a Matroska file under a temporary name and renames it when it is whole: whatever fails, nothing
/// is left. Segments that are being written are read up to their last whole picture. Throws Failure, also
/// when `stopped` returns true or when the format changes within the span, WriteFailure where the disk
/// refuses, and UsageError when the output exists.
Clip export_clip(const ClipPlan& plan, const Stopped& stopped);

/// Throws Failure where export_clip would, but for what happens while it writes. The output is not looked at.
void check_clip(const ClipPlan& plan, const Stopped& stopped);

}  // namespace plendix
