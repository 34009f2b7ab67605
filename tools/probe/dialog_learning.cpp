// What a probe makes of the answers.
#include <algorithm>
#include <cerrno>

#include "host/answer_words.h"
#include "link/picture.h"
#include "probe/dialog.h"

namespace plendix {
namespace {

using End = link::Inquiry::End;

constexpr int most_unanswered = 2;      // registers in a row: it is gone
constexpr int most_lost = 10;           // reads in a row
constexpr std::size_t value_size = 2;   // bytes of a register
constexpr std::uint16_t no_level = 48;  // register 25: bits of what is no level

double in_milliseconds(std::chrono::steady_clock::duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

const char* codec_name(bool h264) {
    return h264 ? "H.264" : "JPEG";
}

What what_of(int error) {
    switch (error) {
        case ECONNREFUSED:
            return What::closed;
        case EHOSTUNREACH:
            return What::unreachable;
        case ENETUNREACH:
            return What::no_route;
        default:
            return What::failed;
    }
}

}  // namespace

void ProbeDialog::learn(Time now) {
    const Question question = asked_;
    switch (question.kind) {
        case Kind::model:
            learn_model();
            break;
        case Kind::firmware:
            learn_firmware();
            break;
        case Kind::setting:
        case Kind::sample:
        case Kind::input:
            learn_setting(question);
            break;
        case Kind::jpeg:
        case Kind::h264:
            learn_picture(question);
            break;
        case Kind::reading:
            learn_reading(now);
            break;
    }
    if (question.kind != Kind::reading) note_times(now);
}

std::optional<std::uint16_t> ProbeDialog::answer() const {
    if (inquiry_->end() != End::answered) return std::nullopt;
    const link::Bytes& value = inquiry_->exchange().last();
    if (value.size() != value_size) return std::nullopt;
    return static_cast<std::uint16_t>(value[0] << 8 | value[1]);
}

void ProbeDialog::learn_model() {
    const link::Inquiry& inquiry = *inquiry_;
    switch (inquiry.end()) {
        case End::answered:
            break;
        case End::failed:
            finding_.what = what_of(inquiry.error());
            finding_.error = inquiry.error();
            return;
        case End::odd:
            finding_.what = What::foreign;
            finding_.answer = inquiry.odd();
            finding_.sends_file = finding_.answer.kind == link::Oddity::too_long;
            return;
        case End::stopped:
            finding_.what = What::stops;
            return;
        case End::none:
        case End::silent:
            finding_.what = What::silent;
            return;
    }
    if (const auto model = answer()) {
        finding_.registers[register_model] = *model;
        finding_.what = *model == 0 ? What::starting : What::stops;
        if (*model != 0) plan_.push_back({Kind::firmware});
        return;
    }
    finding_.what = What::foreign;
    finding_.sends_file = true;
    finding_.answer = {link::Oddity::too_long, inquiry.exchange().last().size(), inquiry.exchange().last()};
    finding_.answer.first.resize(std::min(finding_.answer.first.size(), link::OddAnswer::most_shown));
}

void ProbeDialog::learn_firmware() {
    const auto firmware = answer();
    if (firmware) finding_.registers[register_firmware] = *firmware;
    if (!driver_takes_model(finding_.registers[register_model])) {
        finding_.what = What::refused;
    } else if (firmware == 0) {
        finding_.what = What::starting;
    } else if (firmware) {
        finding_.what = driver_takes_firmware(*firmware) ? What::camera : What::refused;
    }
    if (finding_.what == What::camera) plan_rest();
}

void ProbeDialog::plan_rest() {
    for (const int number : settled_registers)
        plan_.push_back({Kind::setting, number});
    plan_.push_back({Kind::jpeg});
    plan_.push_back({Kind::h264});
    if (wish_.write) plan_.push_back({Kind::sample, register_io});
    plan_.push_back({Kind::input, register_io});
    if (wish_.reads > 0) plan_.push_back({Kind::reading, register_model});
}

void ProbeDialog::learn_setting(const Question& question) {
    const std::string name = "register " + std::to_string(question.number);
    const auto value = answer();
    if (!value) {
        finding_.remarks.push_back(name + (inquiry_->end() == End::odd ? ": " + answer_words(inquiry_->odd())
                                                                       : " gives no value of two bytes"));
        if (++unanswered_ < most_unanswered) return;
        finding_.remarks.push_back("it stopped answering: the rest is not known");
        plan_.clear();
        return;
    }
    unanswered_ = 0;
    if (question.kind == Kind::sample) return;
    finding_.registers[question.number] = *value;
    if (value == unread_value(question.number))
        finding_.remarks.push_back(name + " is " + std::to_string(*value) +
                                   ", which the driver takes for not read yet: no picture comes");
    if (question.kind == Kind::input && (*value & no_level) == 0) finding_.trigger = (*value & 1) != 0;
}

void ProbeDialog::learn_picture(const Question& question) {
    const bool h264 = question.kind == Kind::h264;
    if (inquiry_->end() != End::answered) return explain_missing_picture(question);
    const link::Bytes& last = inquiry_->exchange().last();
    if (const auto trailer = link::parse_trailer({last.data(), last.size()})) {
        judge_trailer(*trailer, h264);
    } else if (!question.again) {
        plan_.push_front({question.kind, 0, true});
    } else {
        finding_.remarks.push_back(std::string("the ") + codec_name(h264) + " picture ends with " +
                                   std::to_string(last.size()) + " bytes, where the trailer has 90 or more");
    }
}

void ProbeDialog::judge_trailer(const link::Trailer& trailer, bool asked_h264) {
    if (!finding_.mac) finding_.mac = trailer.mac;
    const std::string name = std::string("the ") + codec_name(trailer.h264) + " picture";
    const std::string complaint = link::trailer_complaint(trailer);
    (trailer.h264 ? finding_.h264 : finding_.jpeg) = complaint.empty();
    if (!complaint.empty())
        finding_.remarks.push_back(name + " claims " + complaint + ": the driver drops it");
    if (trailer.h264 != asked_h264) {
        std::optional<bool>& asked = asked_h264 ? finding_.h264 : finding_.jpeg;
        if (!asked) asked = false;
        finding_.remarks.push_back(std::string("asked for ") + codec_name(asked_h264) + ", it sends " +
                                   codec_name(trailer.h264));
    }
    const auto right = finding_.value(register_right), bottom = finding_.value(register_bottom);
    if (right && bottom && (trailer.area.x1 > *right || trailer.area.y1 > *bottom))
        finding_.remarks.push_back(name + " claims an area beyond the sensor");
}

void ProbeDialog::explain_missing_picture(const Question& question) {
    const bool h264 = question.kind == Kind::h264;
    const std::string name = codec_name(h264);
    if (inquiry_->end() != End::odd) {
        finding_.remarks.push_back("no whole " + name + " picture came in time");
    } else if (inquiry_->odd().kind == link::Oddity::too_long) {
        finding_.remarks.push_back("the " + name + " picture has no end: given up after 2 MiB");
    } else {
        (h264 ? finding_.h264 : finding_.jpeg) = false;
        finding_.remarks.push_back("no " + name + " picture: " + answer_words(inquiry_->odd()));
    }
}

/// Of a camera whose sensor gives no picture.
void ProbeDialog::judge_sensor() {
    if (finding_.what != What::camera || !finding_.value(register_bottom)) return;
    const auto sensor = finding_.sensor();
    if (!sensor)
        finding_.remarks.push_back("registers 70 to 73 are no rectangle: no picture comes");
    else if (largest_picture(*sensor).empty())
        finding_.remarks.push_back("the sensor is smaller than 64x32 pixels: the driver asks for no picture");
}

void ProbeDialog::learn_reading(Time now) {
    ++finding_.reads.made;
    if (answer()) {
        unanswered_ = 0;
        note_times(now);
    } else {
        ++finding_.reads.lost;
        ++unanswered_;
    }
    if (finding_.reads.made == wish_.reads) return;
    if (unanswered_ < most_lost) return plan_.push_back({Kind::reading, register_model});
    finding_.remarks.push_back("no answer to " + std::to_string(most_lost) +
                               " register reads in a row: it has fallen silent");
}

void ProbeDialog::note_times(Time now) {
    const auto trip = inquiry_->round_trip();
    if (!trip || !answer()) return;
    round_trips_.push_back(in_milliseconds(*trip));
    read_times_.push_back(in_milliseconds(now - asked_at_));
}

}  // namespace plendix
