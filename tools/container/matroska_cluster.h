// One picture as a cluster of a Matroska file of its own, for a file or a live stream.
#pragma once

#include <cstdint>

#include "host/picture_format.h"

namespace plendix {

/// One thread. The picture stays where it lies: it is read once for its checksum and copied by nobody.
class MatroskaCluster {
public:
    /// `units`: of an H.264 byte stream, which a file keeps behind their lengths.
    explicit MatroskaCluster(bool units) : units_(units) {}
    MatroskaCluster(const MatroskaCluster&) = delete;
    MatroskaCluster& operator=(const MatroskaCluster&) = delete;

    /// A JPEG picture, or the units of an H.264 picture. What is returned lies here and in the picture,
    /// until the next call.
    const Pieces& build(const Pieces& picture, bool key, std::int64_t time_ms);

private:
    void gather(const Pieces& picture, bool key, std::int64_t time_ms);
    void put_checksum();

    const bool units_;
    Bytes head_;     // of the cluster, and the units' lengths; kept for its memory
    Pieces pieces_;  // the same
};

}  // namespace plendix
