// Matroska without a known end: a segment of unknown size, each picture a cluster of its own.
#pragma once

#include <optional>

#include "container/matroska_cluster.h"
#include "live/live_writer.h"

namespace plendix {

class MatroskaStream : public LiveWriter {
public:
    const char* media_type() const override { return "video/x-matroska"; }
    void begin(const PictureFormat& format, std::int64_t start_ms) override;
    const Pieces& write(const Pieces& picture, bool key, std::int64_t time_ms) override;

private:
    std::optional<MatroskaCluster> cluster_;
    FrameCodec codec_ = FrameCodec::jpeg;
    Bytes head_;
    bool head_sent_ = false;
    Bytes sets_;    // that the head does not have
    Pieces units_;  // of the picture; kept for its memory, as is what follows
    Pieces pieces_;
};

}  // namespace plendix
