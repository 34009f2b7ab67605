// Decodes a recording as it is on the disk and counts what stock decoders say about it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

namespace plendix {

struct DecodeResult {
    std::uint64_t packets = 0;  // frames in the file
    std::uint64_t decoded = 0;  // pictures that came out of frames without a fault
    std::uint64_t faulty = 0;   // frames refused, repaired or complained about
    std::string first_fault;    // one line
    bool ended = false;         // early, because it was asked to: the numbers are of a part

    bool clean() const { return faulty == 0 && decoded == packets && !ended; }
};

/// Is told how much of the file is done, 0 to 1, frame by frame; false ends the check.
using CheckProgress = std::function<bool(double part)>;

/// Decodes every frame of the file, strictly, JPEG frames with two decoders. Throws Failure when it cannot be
/// opened. While it runs it owns libav's log callback, so one check at a time in a process.
DecodeResult check_file(const std::filesystem::path& file, const CheckProgress& progress = {});

}  // namespace plendix
