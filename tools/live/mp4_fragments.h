// Fragmented MP4 (ISO/IEC 14496-12) with one H.264 track, each picture a fragment of its own, by
// libavformat, whose output stays in memory: what browsers play while it comes.
#pragma once

#include <optional>
#include <string>

#include "live/avformat_output.h"
#include "live/live_writer.h"

namespace plendix {

class Mp4Fragments : public LiveWriter {
public:
    Mp4Fragments();

    const char* media_type() const override { return "video/mp4"; }
    /// Throws Failure when parameter sets or size are other ones than before: a browser needs a new stream.
    void begin(const PictureFormat& format, std::int64_t start_ms) override;
    const Pieces& write(const Pieces& picture, bool key, std::int64_t time_ms) override;

    /// Where the last fragment begins in the stream: a little off its picture's `time_ms`, because each
    /// begins where the one before ends.
    std::int64_t begin_ms() const { return begin_ms_; }
    /// "avc1.420020" (RFC 6381), of the parameter sets.
    const std::string& codec_name() const { return codec_name_; }
    /// What stands before the first fragment, which `write` then does not bring: whoever sends it himself
    /// takes it after `begin`.
    Bytes take_beginning();

private:
    const Pieces& collected();

    AvformatOutput output_;
    PictureFormat format_;
    std::string codec_name_;
    std::optional<std::int64_t> last_ms_;
    std::int64_t begin_ms_ = 0, end_ms_ = 0;
    Bytes access_;  // kept for its memory
    Pieces pieces_;
};

}  // namespace plendix
