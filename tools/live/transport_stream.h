// MPEG-TS (ISO/IEC 13818-1) with one H.264 track, by libavformat, whose output stays in memory.
#pragma once

#include "ffmpeg.h"
#include "live/live_writer.h"

namespace plendix {

class TransportStream : public LiveWriter {
public:
    TransportStream();

    const char* media_type() const override { return "video/mp2t"; }
    void begin(const PictureFormat& format, std::int64_t start_ms) override;
    const Pieces& write(const Pieces& picture, bool key, std::int64_t time_ms) override;

private:
    struct FreeOutput {
        void operator()(AVFormatContext* context) const;
    };

    static int collect(void* stream, std::uint8_t* data, int size);
    void open(const PictureFormat& format);

    std::unique_ptr<AVFormatContext, FreeOutput> context_;
    LibavPointer<AVPacket> packet_;
    bool open_ = false;
    Bytes sets_;    // with start codes
    Bytes access_;  // the access unit; kept for its memory, as is what follows
    Bytes output_;
    Bytes sent_;
    Pieces pieces_;
};

}  // namespace plendix
