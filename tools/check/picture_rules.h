// Pictures of both codecs, how they are described, and what stock decoders say of them.
#pragma once

#include <array>

#include "check/interview.h"

namespace plendix::check {

/// The largest area in the driver's steps; none where the sensor is too small for one.
link::Area whole_area(const link::Area& sensor);
/// A part of it in the same steps; empty where it has no parts.
link::Area part_of(const link::Area& whole);

/// What holds for every picture, whatever its codec.
class Album {
public:
    Album(Interview& interview, const link::Area& sensor) : interview_(interview), sensor_(sensor) {}

    /// MAC address and padding.
    void judge(const Shot& shot);
    /// Whether the picture's area is one that the driver can believe; a note where it is another than
    /// was asked for.
    void judge_area(Rule rule, const Shot& shot);
    void judge_half(Rule rule, const Shot& shot);
    /// The finer picture is not the smaller one.
    void judge_sizes(Rule rule, const Shot& fine, const Shot& coarse);

    Interview& interview() const { return interview_; }
    Findings& findings() const { return interview_.findings(); }

private:
    void judge_mac(const Shot& shot);

    Interview& interview_;
    const link::Area sensor_;
    std::optional<std::array<std::uint8_t, 6>> mac_;
};

/// How the first picture of the kind ended: refused or unanswered, the camera has none.
Ending check_jpeg(Album& album, const link::Area& whole);
Ending check_h264(Album& album, const link::Area& whole);

/// Pictures without a pause between them.
void check_row(Interview& interview, const link::FileName& picture);

/// Where a picture's content ends: behind EOI, or behind the last byte that is not 0.
std::size_t content_size(const Shot& shot);
/// "RRQ image?..."
std::string request_text(const Shot& shot);
std::string area_text(const link::Area& area);

}  // namespace plendix::check
