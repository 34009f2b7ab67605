#include "record/decode_check.h"

#include <new>

#include "host/jpeg_check.h"
#include "host/libav_complaints.h"
#include "record/movie_file.h"
#include "usage.h"

namespace plendix {
namespace {

class Check {
public:
    Check(const std::filesystem::path& file, const CheckProgress& progress)
        : movie_(file),
          decoder_(movie_.strict_decoder()),
          frame_(av_frame_alloc()),
          progress_(progress),
          size_(static_cast<double>(std::filesystem::file_size(file))) {}

    DecodeResult run() {
        const LibavPointer<AVPacket> packet(av_packet_alloc());
        if (!packet || !frame_) throw std::bad_alloc();
        while (next(*packet)) {
            ++result_.packets;
            feed(packet.get());
            result_.ended = progress_ && !progress_(static_cast<double>(packet->pos) / size_);
            if (result_.ended) return result_;
        }
        feed(nullptr);
        return result_;
    }

private:
    bool next(AVPacket& packet) {
        const std::uint64_t before = complaints_.count();
        bool more = false;
        try {
            more = movie_.read(packet);
        } catch (const Failure& failure) {
            fault(failure.what());
            return false;
        }
        if (complaints_.count() != before) fault(complaints_.first());
        return more;
    }

    /// Decodes one packet; null asks for the pictures that the decoder still holds.
    void feed(const AVPacket* packet) {
        const std::uint64_t before = complaints_.count();
        int result = avcodec_send_packet(decoder_.get(), packet);
        bool bad = result < 0;
        std::uint64_t pictures = 0;
        while (result >= 0 && (result = avcodec_receive_frame(decoder_.get(), frame_.get())) >= 0) {
            ++pictures;
            bad = bad || (frame_->flags & AV_FRAME_FLAG_CORRUPT) != 0 || frame_->decode_error_flags != 0;
        }
        bad = bad || (result < 0 && result != AVERROR(EAGAIN) && result != AVERROR_EOF);
        if (complaints_.count() != before) return fault(complaints_.first());
        if (bad) return fault(libav_text(result));
        const std::string complaint = second_opinion(packet);
        if (!complaint.empty()) return fault(complaint);
        result_.decoded += pictures;
    }

    std::string second_opinion(const AVPacket* packet) const {
        if (packet == nullptr || decoder_->codec_id != AV_CODEC_ID_MJPEG) return {};
        return jpeg_complaint(packet->data, static_cast<std::size_t>(packet->size));
    }

    void fault(const std::string& text) {
        if (result_.faulty++ > 0) return;
        result_.first_fault = "frame " + std::to_string(result_.packets) + ": " + text;
    }

    LibavComplaints complaints_;
    MovieFile movie_;
    LibavPointer<AVCodecContext> decoder_;
    LibavPointer<AVFrame> frame_;
    const CheckProgress& progress_;
    double size_;  // bytes
    DecodeResult result_;
};

}  // namespace

DecodeResult check_file(const std::filesystem::path& file, const CheckProgress& progress) {
    return Check(file, progress).run();
}

}  // namespace plendix
