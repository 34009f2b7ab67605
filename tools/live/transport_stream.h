// MPEG-TS (ISO/IEC 13818-1) with one H.264 track, by libavformat.
#pragma once

#include "live/avformat_output.h"
#include "live/live_writer.h"

namespace plendix {

class TransportStream : public LiveWriter {
public:
    TransportStream() : output_("mpegts") {}

    const char* media_type() const override { return "video/mp2t"; }
    void begin(const PictureFormat& format, std::int64_t start_ms) override;
    const Pieces& write(const Pieces& picture, bool key, std::int64_t time_ms) override;

private:
    const Pieces& collected();

    AvformatOutput output_;
    Bytes sets_;    // with start codes
    Bytes access_;  // the access unit; kept for its memory
    Pieces pieces_;
};

}  // namespace plendix
