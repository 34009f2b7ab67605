// A recording played to one viewer at the pace at which it was recorded, or a multiple of it.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "serve/recording_index.h"
#include "serve/viewer.h"

namespace plendix {

/// From a moment on to the end of what there is; gaps are left out. Offers the viewer pictures from a
/// thread of its own until he is gone. False, and nothing happens, while too many are played already.
bool play_recording(const std::shared_ptr<const RecordingIndex>& index, int camera, std::int64_t from_ms,
                    double speed, const std::shared_ptr<Viewer>& viewer);

}  // namespace plendix
