// Raw transfers made pictures.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "decode/raw_transfer.h"

namespace plendix {

struct DecodePlan {
    std::vector<std::filesystem::path> files;  // H.264 pictures of a group in order
    std::string output;  // of one picture; "-": standard output; empty: beside each file
    bool raw = false;    // as the driver delivers it, H.264 not decoded
    RawHints hints;
};

/// Returns the exit code: done when every file is a picture now. Throws UsageError and Failure.
int decode_files(const DecodePlan& plan);

}  // namespace plendix
