#include "check/picture_rules.h"
#include "decode/jpeg_scan.h"
#include "decode/picture_decoder.h"
#include "host/jpeg_check.h"
#include "host/plain_text.h"

namespace plendix::check {
namespace {

constexpr int usual = 8, coarsest = 2, finest = 20;  // quality on the wire

link::FileName jpeg(const link::Area& area, int quality, bool half = false) {
    link::FileName name;
    name.kind = link::Kind::jpeg;
    name.area = area;
    name.quality = quality;
    name.half = half;
    return name;
}

std::string libav_complaint(const Shot& shot) {
    PictureDecoder decoder(AV_CODEC_ID_MJPEG);
    std::string complaint = decoder.feed(shot.file);
    if (complaint.empty()) complaint = decoder.finish();
    if (complaint.empty() && decoder.pictures().empty()) complaint = "no picture";
    return complaint;
}

class JpegRules {
public:
    explicit JpegRules(Album& album) : album_(album), findings_(album.findings()) {}

    void judge(const Shot& shot) {
        if (!shot.fetched.whole()) return;
        judge_trailer(shot);
        if (!shot.good() || shot.trailer.h264) return;
        album_.judge(shot);
        const link::Bytes& payload = shot.fetched.payload;
        const JpegScan scan = scan_jpeg({payload.data(), payload.size()});
        const auto require = [&](Rule rule, const std::string& complaint, const char* expected) {
            findings_.judge(rule, complaint.empty(),
                            {request_text(shot), cut(printable(complaint), 100), expected});
        };
        require(Rule::jpeg_markers, restart_complaint(scan, shot.trailer.width(), shot.trailer.height()),
                "FF D0 behind the first 16 MCUs, and so on");
        require(Rule::jpeg_end, scan.end > 0 ? "" : "a scan without FF D9", "FF D9");
        require(Rule::jpeg_libjpeg, jpeg_complaint(shot.file.data(), shot.file.size()), "a picture");
        // libavcodec miscounts a scan without a stuffed byte: the marker was seen above.
        const std::string complaint = libav_complaint(shot);
        const bool miscounted = scan.end > 0 && complaint.find("EOI missing") != std::string::npos;
        require(Rule::jpeg_libav, miscounted ? "" : complaint, "a picture");
    }

private:
    void judge_trailer(const Shot& shot) {
        const std::string size = std::to_string(shot.fetched.last.size()) + " bytes";
        if (shot.fetched.last.size() < link::trailer_size) return;  // told of as any picture's
        const std::string complaint = shot.trailer.h264 ? size + ", as of an H.264 picture" : shot.trouble;
        findings_.judge(Rule::jpeg_trailer, complaint.empty(),
                        {request_text(shot), complaint, "90 to 92 bytes, a size, a quality of 0 to 26"});
        if (complaint.empty() && shot.trailer.quality != shot.asked.quality)
            findings_.pass(Rule::jpeg_trailer, "it says quality " + std::to_string(shot.trailer.quality));
    }

    Album& album_;
    Findings& findings_;
};

}  // namespace

Ending check_jpeg(Album& album, const link::Area& whole) {
    Interview& interview = album.interview();
    JpegRules rules_of_jpeg(album);
    const auto shoot = [&](const link::FileName& name, bool optional = false) {
        Shot shot = interview.shoot(interview.open(), name, optional);
        rules_of_jpeg.judge(shot);
        return shot;
    };
    const Shot first = shoot(jpeg(whole, usual), true);
    if (first.fetched.ending == Ending::refused || first.fetched.ending == Ending::unanswered) {
        album.findings().skip_group("jpeg", "image? is not served: " + first.trouble);
        return first.fetched.ending;
    }
    album.findings().skip_group("jpeg", first.trouble);
    album.judge_half(Rule::jpeg_half, shoot(jpeg(whole, usual, true)));
    const link::Area part = part_of(whole);
    if (part.width() > 0 && part.height() > 0) album.judge_area(Rule::jpeg_area, shoot(jpeg(part, usual)));
    const Shot fine = shoot(jpeg(whole, finest));
    album.judge_sizes(Rule::jpeg_quality, fine, shoot(jpeg(whole, coarsest)));
    return first.fetched.ending;
}

}  // namespace plendix::check
