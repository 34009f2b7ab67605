// What is shown in place of a picture that would be stale.
#pragma once

#include "host/frame.h"

namespace plendix {

/// A dark JPEG picture with a sign on it, 640x360; made once.
const Bytes& no_signal_jpeg();

}  // namespace plendix
