#include "probe/dialog.h"

#include <algorithm>

#include "link/file_name.h"

namespace plendix {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds repetition{700};         // a request may be lost on its way
constexpr milliseconds setting_patience{2100};  // three of them
constexpr milliseconds reading_patience{300};   // what comes later counts as lost
constexpr int timeouts_together = 10;           // nothing keeps an address busy for longer, reads apart
constexpr std::size_t value_size = 2;           // bytes of a register
constexpr std::size_t largest_picture_bytes = 2U << 20U;  // what the driver has room for
constexpr std::uint16_t sample_input = 48;                // register 25: written
constexpr int small_side = 64;                            // of the pictures that are asked for, sensor pixels
constexpr int coarse_quality = 2, coarse_qp = 35;

std::optional<double> median(std::vector<double>& values) {
    if (values.empty()) return std::nullopt;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

}  // namespace

ProbeDialog::ProbeDialog(const ProbeWish& wish, Time now)
    : wish_(wish), end_(now + timeouts_together * wish.timeout + wish.reads * reading_patience) {
    ask(now);
    turn(now);
}

void ProbeDialog::take(link::View datagram, std::uint16_t port, Time now) {
    if (done_) return;
    inquiry_->take(datagram, port, now);
    turn(now);
}

void ProbeDialog::fail(int error, Time now) {
    if (done_) return;
    inquiry_->fail(error);
    turn(now);
}

void ProbeDialog::tick(Time now) {
    if (done_) return;
    inquiry_->tick(now);
    turn(now);
    if (done_ || now < end_) return;
    finding_.remarks.push_back("asked for as long as an address may take: the rest is not known");
    finish();
}

ProbeDialog::Time ProbeDialog::deadline() const {
    return std::min(inquiry_->deadline(), end_);
}

std::optional<ProbeDialog::Outgoing> ProbeDialog::outgoing() {
    if (outgoing_.empty()) return std::nullopt;
    Outgoing next = std::move(outgoing_.front());
    outgoing_.pop_front();
    return next;
}

void ProbeDialog::ask(Time now) {
    asked_ = plan_.front();
    plan_.pop_front();
    ++questions_;
    asked_at_ = now;
    const bool picture = asked_.kind == Kind::jpeg || asked_.kind == Kind::h264;
    const auto trust = asked_.kind == Kind::model ? link::Trust::stranger : link::Trust::camera;
    inquiry_.emplace(name_of(asked_), picture ? largest_picture_bytes : value_size, trust,
                     patience_of(asked_), now);
}

/// Goes on to the next question where this one has ended.
void ProbeDialog::turn(Time now) {
    for (;;) {
        while (auto next = inquiry_->outgoing())
            outgoing_.push_back({std::move(next->bytes), next->port, questions_});
        if (inquiry_->end() == link::Inquiry::End::none) return;
        learn(now);
        if (plan_.empty()) return finish();
        ask(now);
    }
}

void ProbeDialog::finish() {
    judge_sensor();
    finding_.round_trip_ms = median(round_trips_);
    finding_.read_ms = median(read_times_);
    plan_.clear();
    done_ = true;
}

std::string ProbeDialog::name_of(const Question& question) const {
    switch (question.kind) {
        case Kind::model:
            return link::register_name(register_model);
        case Kind::firmware:
            return link::register_name(register_firmware);
        case Kind::sample:
            return link::register_name(question.number, sample_input);
        case Kind::jpeg:
        case Kind::h264:
            return link::picture_name(small_picture(question.kind == Kind::h264));
        case Kind::setting:
        case Kind::input:
        case Kind::reading:
            break;
    }
    return link::register_name(question.number);
}

link::Patience ProbeDialog::patience_of(const Question& question) const {
    switch (question.kind) {
        case Kind::model:
            return {repetition, wish_.timeout};
        case Kind::jpeg:
        case Kind::h264:
            return {wish_.timeout, 2 * wish_.timeout};
        case Kind::reading:
            return {reading_patience, reading_patience};
        case Kind::firmware:
        case Kind::setting:
        case Kind::sample:
        case Kind::input:
            break;
    }
    return {repetition, setting_patience};
}

/// At the sensor's corner, in the steps that the driver keeps to.
link::FileName ProbeDialog::small_picture(bool h264) const {
    link::FileName name;
    name.kind = h264 ? link::Kind::h264 : link::Kind::jpeg;
    const int left = (finding_.value(register_left).value_or(0) + 15) / 16 * 16;
    const int top = (finding_.value(register_top).value_or(0) + 15) / 16 * 16;
    name.area = {left, top, left + small_side, top + small_side};
    name.quality = coarse_quality;
    name.qp = coarse_qp;
    name.key = true;
    name.ssn = 1;
    return name;
}

}  // namespace plendix
