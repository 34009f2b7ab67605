// A second opinion on JPEG pictures, for libav takes some in silence that are not as they should be.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace plendix {

/// The JPEG library's first complaint about a picture, empty when it has none. It knows the restart
/// markers that the header promises (ITU-T T.81 clause F.2.2.5) and bytes that belong to nothing.
std::string jpeg_complaint(const std::uint8_t* data, std::size_t size);

}  // namespace plendix
