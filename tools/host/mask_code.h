// How a motion mask is written in the driver's documents: 32 characters, four for each row of zones.
#pragma once

#include <string>

#include "host/camera_settings.h"

namespace plendix {

/// Without a mask all zones count.
std::string mask_code(const std::optional<MotionMask>& mask);

/// No mask where all zones count. Characters that are missing count as those of zones that do.
std::optional<MotionMask> read_mask_code(const std::string& code);

}  // namespace plendix
