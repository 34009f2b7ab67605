// A muxer of libavformat with one H.264 track whose output stays in memory.
#pragma once

#include <memory>
#include <string>

#include "ffmpeg.h"
#include "host/picture_format.h"

namespace plendix {

/// One thread.
class AvformatOutput {
public:
    /// `name` is the muxer's. Throws Failure where libavformat has none.
    explicit AvformatOutput(const char* name);
    AvformatOutput(const AvformatOutput&) = delete;
    AvformatOutput& operator=(const AvformatOutput&) = delete;

    AVFormatContext& context() { return *context_; }
    bool is_open() const { return open_; }
    /// `options` as libavformat has them, "movflags=..."; parameter sets in the header where `global`.
    void open(const PictureFormat& format, bool global, const std::string& options = {});
    /// An access unit with start codes. `duration_ms` 0: not known.
    void write(const Bytes& access_unit, bool key, std::int64_t time_ms, std::int64_t duration_ms = 0);
    /// What the muxer keeps back until a fragment is whole.
    void flush();

    /// All that came since the last call; lies here until the next one.
    const Bytes& take();

private:
    struct FreeOutput {
        void operator()(AVFormatContext* context) const;
    };

    void require(int result) const;
    static int collect(void* output, std::uint8_t* data, int size);

    const std::string name_;
    std::unique_ptr<AVFormatContext, FreeOutput> context_;
    LibavPointer<AVPacket> packet_;
    bool open_ = false;
    Bytes output_;
    Bytes taken_;
};

/// Delimiter where wanted, parameter sets where given, and the units: with start codes, into `access_unit`.
void gather_access_unit(const Pieces& units, const Bytes& parameter_sets, bool delimiter, Bytes& access_unit);

}  // namespace plendix
