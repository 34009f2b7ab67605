#include "probe/finding.h"

namespace plendix {

std::optional<PictureSize> Finding::sensor() const {
    const auto left = value(register_left), top = value(register_top);
    const auto right = value(register_right), bottom = value(register_bottom);
    if (!left || !top || !right || !bottom || *left >= *right || *top >= *bottom) return std::nullopt;
    return PictureSize{*right - *left, *bottom - *top};
}

}  // namespace plendix
