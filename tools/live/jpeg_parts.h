// JPEG pictures as parts of one message (RFC 2046, 5.1), each in place of the one before. It has no closing
// delimiter: readers take that for damage.
#pragma once

#include "live/live_writer.h"

namespace plendix {

class JpegParts : public LiveWriter {
public:
    const char* media_type() const override { return "multipart/x-mixed-replace; boundary=plendix"; }
    void begin(const PictureFormat& format, std::int64_t start_ms) override;
    const Pieces& write(const Pieces& picture, bool key, std::int64_t time_ms) override;

private:
    std::string head_;
    Pieces pieces_;
};

}  // namespace plendix
