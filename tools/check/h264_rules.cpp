#include "check/picture_rules.h"
#include "decode/picture_decoder.h"
#include "decode/slice_header.h"
#include "host/plain_text.h"

namespace plendix::check {
namespace {

constexpr int usual = 29, finest = 17, coarsest = 35;  // quantisers
constexpr const char* a_picture = "a picture";

link::FileName h264(const link::Area& area, int qp, bool half = false) {
    link::FileName name;
    name.kind = link::Kind::h264;
    name.area = area;
    name.qp = qp;
    name.half = half;
    name.key = true;
    return name;
}

/// How a picture of the stream is asked for, and the rule that says that it is a key frame; `count`:
/// none does.
struct Step {
    bool key;
    long stream;
    Rule rule;
};

const std::vector<Step>& steps() {
    static const std::vector<Step> all{
        {true, 0, Rule::h264_begins}, {false, 0, Rule::count},       {false, 0, Rule::count},
        {false, 0, Rule::count},      {true, 0, Rule::h264_request}, {false, 0, Rule::count},
        {false, 0, Rule::count},      {false, 1, Rule::h264_ssn},    {false, 1, Rule::count}};
    return all;
}

class H264Rules {
public:
    H264Rules(Album& album, const link::Area& whole)
        : album_(album), interview_(album.interview()), findings_(album.findings()), whole_(whole) {}

    Ending run() {
        Shot first = shoot(interview_.open(), h264(whole_, usual), true);
        if (first.fetched.ending == Ending::refused || first.fetched.ending == Ending::unanswered) {
            findings_.skip_group("h264", "h264? is not served: " + first.trouble);
            return first.fetched.ending;
        }
        findings_.skip_group("h264", first.trouble);
        follow_a_stream();
        alone(first);
        const Shot half = alone(shoot(interview_.open(), h264(whole_, usual, true)));
        album_.judge_half(Rule::h264_half, half);
        const link::Area part = part_of(whole_);
        if (part.width() > 0 && part.height() > 0)
            album_.judge_area(Rule::h264_area, alone(shoot(interview_.open(), h264(part, usual))));
        const Shot fine = alone(shoot(interview_.open(), h264(whole_, finest)));
        album_.judge_sizes(Rule::h264_qp, fine, alone(shoot(interview_.open(), h264(whole_, coarsest))));
        return first.fetched.ending;
    }

private:
    Shot shoot(Conversation& conversation, link::FileName name, bool optional = false) {
        if (name.ssn < 0) name.ssn = ++stream_;
        Shot shot = interview_.shoot(conversation, name, optional);
        if (!shot.fetched.whole() || shot.fetched.last.size() < link::trailer_size) return shot;
        const std::string size = std::to_string(shot.fetched.last.size()) + " bytes";
        const std::string complaint = shot.trailer.h264 ? shot.trouble : size + ", as of a JPEG picture";
        findings_.judge(Rule::h264_trailer, complaint.empty(),
                        {request_text(shot), complaint, "93 bytes or more, a size"});
        if (!shot.trailer.h264) shot.trouble = "the trailer has " + size;
        if (shot.good()) album_.judge(shot);
        return shot;
    }

    /// A picture that needs no other.
    Shot alone(Shot shot) {
        if (!shot.good()) return shot;
        PictureDecoder decoder(AV_CODEC_ID_H264);
        expect_key(Rule::h264_begins, shot);
        std::string complaint = decoder.feed(shot.file);
        if (complaint.empty()) complaint = decoder.finish();
        judge_decoding(shot, complaint, decoder, 1);
        return shot;
    }

    void expect_key(Rule rule, const Shot& shot) {
        findings_.judge(rule, shot.trailer.key,
                        {request_text(shot), "0 at byte 92 of the trailer: no key frame", "a key frame"});
    }

    void judge_decoding(const Shot& shot, const std::string& complaint, const PictureDecoder& decoder,
                        std::size_t wanted) {
        std::string came = cut(printable(complaint), 100);
        if (came.empty() && decoder.pictures().size() != wanted)
            came = std::to_string(decoder.pictures().size()) + " pictures of " + std::to_string(wanted);
        findings_.judge(Rule::h264_libav, came.empty(), {request_text(shot), came, a_picture});
    }

    /// Twice where a picture was lost: those behind it lack their reference.
    void follow_a_stream() {
        for (int attempt = 0; attempt < 2; ++attempt) {
            std::vector<Shot> shots;
            Conversation& conversation = interview_.open();
            stream_ += 2;
            for (const Step& step : steps()) {
                link::FileName name = h264(whole_, usual);
                name.key = step.key;
                name.ssn = stream_ - 1 + step.stream;
                shots.push_back(shoot(conversation, name));
                if (!shots.back().good()) break;
            }
            if (shots.back().good()) return judge_stream(shots);
            for (const Rule rule : {Rule::h264_request, Rule::h264_ssn, Rule::h264_libav, Rule::h264_slices})
                findings_.skip(rule, shots.back().trouble);
        }
    }

    void judge_stream(const std::vector<Shot>& shots) {
        std::size_t predicted = 0;
        for (std::size_t i = 0; i < shots.size(); ++i) {
            if (steps()[i].rule != Rule::count) expect_key(steps()[i].rule, shots[i]);
            judge_slice(shots[i]);
            predicted += shots[i].trailer.key ? 0 : 1;
        }
        PictureDecoder decoder(AV_CODEC_ID_H264);
        for (const Shot& shot : shots) {
            const std::string complaint = decoder.feed(shot.file);
            if (!complaint.empty()) return judge_decoding(shot, complaint, decoder, 0);
        }
        judge_decoding(shots.back(), decoder.finish(), decoder, shots.size());
        findings_.pass(Rule::h264_libav, predicted == 0 ? "all of them are key frames" : "");
    }

    void judge_slice(const Shot& shot) {
        const link::Bytes& payload = shot.fetched.payload;
        const link::View view{payload.data(), payload.size()};
        if (has_start_code(view))
            return findings_.pass(Rule::h264_slices, "pictures of several units are left out");
        const auto slice = read_slice_header(view);
        const unsigned number = shot.trailer.key ? 0 : (number_ + 1) % frame_numbers;
        number_ = number;
        const bool type = slice && (slice->intra() || (slice->predicted() && !shot.trailer.key));
        const bool right = type && slice->first_macroblock == 0 && slice->parameter_set == 0 &&
                           slice->frame_number == number;
        const std::string came = !slice ? "no slice header"
                                        : "slice_type " + std::to_string(slice->type) + ", frame_num " +
                                              std::to_string(slice->frame_number);
        findings_.judge(Rule::h264_slices, right,
                        {request_text(shot), came,
                         std::string(shot.trailer.key ? "slice_type 2 or 7" : "slice_type 0, 2, 5 or 7") +
                             ", frame_num " + std::to_string(number)});
    }

    Album& album_;
    Interview& interview_;
    Findings& findings_;
    const link::Area whole_;
    long stream_ = 100;
    unsigned number_ = 0;  // of the last picture, in its group
};

}  // namespace

Ending check_h264(Album& album, const link::Area& whole) {
    return H264Rules(album, whole).run();
}

}  // namespace plendix::check
