#include "link/inquiry.h"

#include <algorithm>
#include <utility>

namespace plendix::link {
namespace {

// A stray datagram may come in front of the answer, and one that was refused may be answered when it
// is asked again.
constexpr std::chrono::milliseconds grace{300};

}  // namespace

Inquiry::Inquiry(std::string name, std::size_t most_bytes, Trust trust, Patience patience, Time now)
    : name_(std::move(name)),
      most_bytes_(most_bytes),
      trust_(trust),
      patience_(patience),
      exchange_(name_, most_bytes, trust),
      whole_end_(now + patience.whole) {
    ask(now);
}

void Inquiry::ask(Time now) {
    if (attempts_++ > 0) exchange_ = Exchange(name_, most_bytes_, trust_);
    outgoing_.push_back({exchange_.request(), camera_port});
    asked_ = now;
    attempt_end_ = now + patience_.attempt;
}

void Inquiry::take(View datagram, std::uint16_t port, Time now) {
    if (end_ != End::none) return;
    const std::size_t blocks = exchange_.blocks();
    const bool granted = exchange_.granted();
    Bytes reply = exchange_.take(datagram, port);
    if (!reply.empty()) outgoing_.push_back({std::move(reply), port});
    if (exchange_.granted() && !granted) {
        granted_ = true;
        verdict_.reset();
        if (attempts_ == 1) round_trip_ = now - asked_;
    }
    if (exchange_.granted() != granted || exchange_.blocks() != blocks)
        attempt_end_ = now + patience_.attempt;
    judge(now);
}

void Inquiry::judge(Time now) {
    if (exchange_.complete()) {
        end_ = End::answered;
        return;
    }
    const bool odd = exchange_.odd().kind != Oddity::none;
    if (!odd || (exchange_.granted() && !exchange_.broken()))
        return;  // what is odd came in front of the answer
    if (!broken_ && (exchange_.broken() || !verdict_)) {
        odd_ = exchange_.odd();
        verdict_ = now + grace;
    }
    if (!exchange_.broken()) return;
    if (broken_ || !worth_asking(now)) {
        end_ = End::odd;
    } else {
        broken_ = true;
        ask(now);
    }
}

bool Inquiry::worth_asking(Time now) const {
    return whole_end_ - now >= grace;
}

void Inquiry::fail(int error) {
    if (end_ != End::none) return;
    error_ = error;
    end_ = End::failed;
}

void Inquiry::tick(Time now) {
    if (end_ != End::none) return;
    if ((verdict_ && now >= *verdict_) || (now >= whole_end_ && verdict_)) {
        end_ = End::odd;
    } else if (now >= whole_end_) {
        end_ = granted_ ? End::stopped : End::silent;
    } else if (now >= attempt_end_) {
        if (worth_asking(now))
            ask(now);
        else
            attempt_end_ = whole_end_;
    }
}

Inquiry::Time Inquiry::deadline() const {
    const Time end = std::min(attempt_end_, whole_end_);
    return verdict_ ? std::min(end, *verdict_) : end;
}

std::optional<Inquiry::Datagram> Inquiry::outgoing() {
    if (outgoing_.empty()) return std::nullopt;
    Datagram next = std::move(outgoing_.front());
    outgoing_.pop_front();
    return next;
}

}  // namespace plendix::link
