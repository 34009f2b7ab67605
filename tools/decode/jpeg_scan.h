// Markers in the entropy-coded data of a picture as cameras send it (ITU-T T.81 clause B.1.1.5). Pure
// functions.
#pragma once

#include <string>

#include "link/picture.h"

namespace plendix {

struct JpegScan {
    std::vector<int> restarts;  // 0 to 7, as they come
    std::size_t end = 0;        // behind EOI; 0 where there is none
    int strange = -1;           // the first marker that does not belong there
};

/// `payload` is what stands in front of the trailer.
JpegScan scan_jpeg(link::View payload);

/// What is wrong with the restart markers of a picture of this size; empty when nothing is.
std::string restart_complaint(const JpegScan& scan, int width, int height);

}  // namespace plendix
