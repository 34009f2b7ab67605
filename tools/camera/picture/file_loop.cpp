// The scene from a picture or video file.
#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <vector>

#include "camera/picture/loop.h"
#include "camera/wire/packet.h"
#include "ffmpeg.h"
#include "usage.h"

namespace plendix::camera {

namespace {

constexpr std::size_t most_pictures = 256, most_bytes = 80U << 20U;  // kept of a video
constexpr int greatest_side = 16384;                                 // of a file; beyond, it is refused

/// Planes of one block of memory: 4:2:0 or 4:2:2.
struct Planes {
    Planes() = default;
    Planes(const Size& size, bool half_chroma_rows, Bytes& memory) {
        picture.width = size.width;
        picture.height = size.height;
        picture.half_chroma_rows = half_chroma_rows;
        const int columns = (size.width + 1) / 2;
        const int rows = half_chroma_rows ? (size.height + 1) / 2 : size.height;
        const auto luma = static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height);
        const auto chroma = static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows);
        memory.resize(luma + 2 * chroma);
        picture.plane = {memory.data(), memory.data() + luma, memory.data() + luma + chroma};
        picture.stride = {size.width, columns, columns};
    }
    Picture picture;
};

/// Converts between sizes and formats; keeps what it needs for the next picture of the same kind.
class Scaler {
public:
    /// `full_range` tells of the source; the target tells of itself.
    bool scale(const AVFrame& source, bool full_range, const Picture& target) {
        const AVPixelFormat format = target.half_chroma_rows ? AV_PIX_FMT_YUV420P : AV_PIX_FMT_YUV422P;
        context_.reset(sws_getCachedContext(context_.release(), source.width, source.height,
                                            static_cast<AVPixelFormat>(source.format), target.width,
                                            target.height, format, SWS_BICUBIC, nullptr, nullptr, nullptr));
        if (!context_) return false;
        const int* bt601 = sws_getCoefficients(SWS_CS_ITU601);
        const int* matrix =
            sws_getCoefficients(source.colorspace == AVCOL_SPC_BT709 ? SWS_CS_ITU709 : SWS_CS_ITU601);
        sws_setColorspaceDetails(context_.get(), matrix, full_range ? 1 : 0, bt601, target.full_range ? 1 : 0,
                                 0, 1 << 16, 1 << 16);
        const std::array<std::uint8_t*, 4> planes{target.plane[0], target.plane[1], target.plane[2], nullptr};
        const std::array<int, 4> strides{target.stride[0], target.stride[1], target.stride[2], 0};
        return sws_scale(context_.get(), source.data, source.linesize, 0, source.height, planes.data(),
                         strides.data()) == target.height;
    }

private:
    LibavPointer<SwsContext> context_;
};

/// The formats with a J say by themselves that they are of full range.
bool is_full_range(const AVFrame& frame) {
    return frame.color_range == AVCOL_RANGE_JPEG || frame.format == AV_PIX_FMT_YUVJ420P ||
           frame.format == AV_PIX_FMT_YUVJ422P || frame.format == AV_PIX_FMT_YUVJ444P;
}

/// Reads the pictures of a file one after the other.
class Reader {
public:
    explicit Reader(const std::string& file)
        : file_(file), packet_(av_packet_alloc()), frame_(av_frame_alloc()) {
        if (!packet_ || !frame_) throw std::bad_alloc();
        AVFormatContext* opened = nullptr;
        require(avformat_open_input(&opened, file.c_str(), nullptr, nullptr));
        format_.reset(opened);
        require(avformat_find_stream_info(format_.get(), nullptr));
        const AVCodec* codec = nullptr;
        stream_ = av_find_best_stream(format_.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
        require(stream_);
        decoder_.reset(avcodec_alloc_context3(codec));
        if (!decoder_) throw std::bad_alloc();
        require(avcodec_parameters_to_context(decoder_.get(), format_->streams[stream_]->codecpar));
        require(avcodec_open2(decoder_.get(), codec, nullptr));
    }

    /// Calls `take` with each picture until that returns false, or the file ends or is damaged.
    void read(const std::function<bool(const AVFrame&)>& take) {
        bool more = true;
        while (more && av_read_frame(format_.get(), packet_.get()) >= 0) {
            if (packet_->stream_index == stream_) more = decode(packet_.get(), take);
            av_packet_unref(packet_.get());
        }
        if (more) decode(nullptr, take);
    }

private:
    bool decode(const AVPacket* packet, const std::function<bool(const AVFrame&)>& take) {
        if (avcodec_send_packet(decoder_.get(), packet) < 0) return true;
        while (avcodec_receive_frame(decoder_.get(), frame_.get()) >= 0)
            if (!take(*frame_)) return false;
        return true;
    }

    void require(int result) const {
        if (result >= 0) return;
        throw Failure("scene '" + file_ + "': " + libav_text(result) +
                      "; expected a picture or video file that FFmpeg reads");
    }

    std::string file_;
    LibavPointer<AVFormatContext> format_;
    LibavPointer<AVCodecContext> decoder_;
    LibavPointer<AVPacket> packet_;
    LibavPointer<AVFrame> frame_;
    int stream_ = -1;
};

/// Copies the part of `source` that begins at x, y (even where chroma is halved); what lies beyond
/// the source repeats its edge.
void crop(const Picture& source, int x, int y, const Picture& target) {
    for (std::size_t plane = 0; plane < 3; ++plane) {
        const int columns = plane == 0 ? 1 : 2, rows = plane > 0 && source.half_chroma_rows ? 2 : 1;
        const int width = (source.width + columns - 1) / columns, height = (source.height + rows - 1) / rows;
        const int left = std::min(x / columns, width - 1), wanted = target.width / columns;
        const int copied = std::min(wanted, width - left);
        for (int row = 0; row < target.height / rows; ++row) {
            const int at = std::min(row + y / rows, height - 1);
            const std::uint8_t* from =
                source.plane[plane] + static_cast<std::ptrdiff_t>(at) * source.stride[plane] + left;
            std::uint8_t* to = target.plane[plane] + static_cast<std::ptrdiff_t>(row) * target.stride[plane];
            std::memcpy(to, from, static_cast<std::size_t>(copied));
            std::memset(to + copied, from[copied - 1], static_cast<std::size_t>(wanted - copied));
        }
    }
}

class FileLoop : public Loop {
public:
    FileLoop(const std::string& file, const Size& largest) {
        if (!source_) throw std::bad_alloc();
        std::size_t bytes = 0;
        Reader(file).read([&](const AVFrame& frame) {
            if (!keep(frame, largest)) return false;
            bytes += pictures_.back().size();
            return pictures_.size() < most_pictures && bytes + pictures_.back().size() <= most_bytes;
        });
        if (pictures_.empty())
            throw Failure("scene '" + file +
                          "': no picture in it; expected a picture or video file that FFmpeg reads");
    }

    std::size_t size() const override { return pictures_.size(); }

    void draw(std::size_t index, const Picture& target, const Area& area, bool half,
              const Area& sensor) override {
        Planes stored(size_, true, pictures_.at(index));
        for (std::size_t plane = 0; plane < 3; ++plane) {
            source_->data[plane] = stored.picture.plane[plane];
            source_->linesize[plane] = stored.picture.stride[plane];
        }
        source_->width = size_.width;
        source_->height = size_.height;
        source_->format = AV_PIX_FMT_YUV420P;
        Planes view(scaled(sensor, half), target.half_chroma_rows, view_);
        view.picture.full_range = target.full_range;
        if (!to_sensor_.scale(*source_, false, view.picture)) throw Failure("cannot scale the scene");
        const int scale = half ? 2 : 1;
        crop(view.picture, (area.x0 - sensor.x0) / scale, (area.y0 - sensor.y0) / scale, target);
    }

private:
    /// The first picture decides on the size; a picture that does not convert ends the loop.
    bool keep(const AVFrame& frame, const Size& largest) {
        if (frame.width > greatest_side || frame.height > greatest_side) return false;
        if (pictures_.empty())
            size_ = {std::min(frame.width, largest.width), std::min(frame.height, largest.height)};
        Bytes memory;
        const Planes stored(size_, true, memory);
        if (!to_store_.scale(frame, is_full_range(frame), stored.picture)) return false;
        pictures_.push_back(std::move(memory));
        return true;
    }

    Size size_{};                                     // of the pictures kept
    std::vector<Bytes> pictures_;                     // 4:2:0
    Bytes view_;                                      // the sensor's view of the picture drawn last
    LibavPointer<AVFrame> source_{av_frame_alloc()};  // refers to the kept picture drawn last
    Scaler to_store_, to_sensor_;
};

}  // namespace

std::unique_ptr<Loop> file_loop(const std::string& file, const Size& largest) {
    return std::make_unique<FileLoop>(file, largest);
}

}  // namespace plendix::camera
