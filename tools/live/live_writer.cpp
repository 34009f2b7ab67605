#include "live/live_writer.h"

#include "live/jpeg_parts.h"
#include "live/matroska_stream.h"
#include "live/transport_stream.h"
#include "usage.h"

namespace plendix {

StreamFormat parse_stream_format(const std::string& text) {
    if (text == "mkv") return StreamFormat::matroska;
    if (text == "ts") return StreamFormat::mpeg_ts;
    if (text == "mjpeg") return StreamFormat::jpeg_parts;
    throw UsageError("format '" + text + "' is none of mkv, ts and mjpeg");
}

const char* format_name(StreamFormat format) {
    switch (format) {
        case StreamFormat::matroska:
            return "Matroska";
        case StreamFormat::mpeg_ts:
            return "MPEG-TS";
        case StreamFormat::jpeg_parts:
            return "multipart JPEG";
    }
    return "";
}

bool carries(StreamFormat format, FrameCodec codec) {
    if (format == StreamFormat::mpeg_ts) return codec == FrameCodec::h264;
    if (format == StreamFormat::jpeg_parts) return codec == FrameCodec::jpeg;
    return true;
}

std::unique_ptr<LiveWriter> make_live_writer(StreamFormat format) {
    if (format == StreamFormat::mpeg_ts) return std::make_unique<TransportStream>();
    if (format == StreamFormat::jpeg_parts) return std::make_unique<JpegParts>();
    return std::make_unique<MatroskaStream>();
}

}  // namespace plendix
