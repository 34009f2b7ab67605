#include "live/live_writer.h"

#include "live/jpeg_parts.h"
#include "live/matroska_stream.h"
#include "live/mp4_fragments.h"
#include "live/transport_stream.h"
#include "usage.h"

namespace plendix {

StreamFormat parse_stream_format(const std::string& text) {
    if (text == "mkv") return StreamFormat::matroska;
    if (text == "ts") return StreamFormat::mpeg_ts;
    if (text == "mjpeg") return StreamFormat::jpeg_parts;
    if (text == "mp4") return StreamFormat::mp4;
    throw UsageError("format '" + text + "' is none of mkv, ts, mjpeg and mp4");
}

const char* format_name(StreamFormat format) {
    switch (format) {
        case StreamFormat::matroska:
            return "Matroska";
        case StreamFormat::mpeg_ts:
            return "MPEG-TS";
        case StreamFormat::jpeg_parts:
            return "multipart JPEG";
        case StreamFormat::mp4:
            return "MP4";
    }
    return "";
}

bool carries(StreamFormat format, FrameCodec codec) {
    if (format == StreamFormat::mpeg_ts || format == StreamFormat::mp4) return codec == FrameCodec::h264;
    if (format == StreamFormat::jpeg_parts) return codec == FrameCodec::jpeg;
    return true;
}

std::unique_ptr<LiveWriter> make_live_writer(StreamFormat format) {
    if (format == StreamFormat::mpeg_ts) return std::make_unique<TransportStream>();
    if (format == StreamFormat::jpeg_parts) return std::make_unique<JpegParts>();
    if (format == StreamFormat::mp4) return std::make_unique<Mp4Fragments>();
    return std::make_unique<MatroskaStream>();
}

}  // namespace plendix
