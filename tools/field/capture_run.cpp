#include "field/capture_run.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <set>
#include <utility>

#include "field/capture_ring.h"
#include "field/capture_screen.h"
#include "field/live_capture.h"
#include "field/picture_cutter.h"
#include "field/second_sight.h"
#include "field/silence_watch.h"
#include "field/socket_drops.h"
#include "host/clocks.h"
#include "host/lossy_output.h"
#include "host/signals.h"
#include "host/words.h"
#include "link/packet.h"
#include "usage.h"

namespace plendix {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds pass{100};
constexpr std::chrono::seconds tick_period{1};
constexpr std::chrono::milliseconds kernel_delay{250};  // until it has handed over what it has
constexpr std::chrono::seconds after_silence{10};
constexpr std::chrono::seconds after_end{2};  // for a reader that is slow
constexpr std::size_t most_of_pass = 10'000;  // packets between looks at signals and the time
constexpr std::size_t most_clients = 4096;
constexpr std::size_t most_named = 5;

/// "10.0.0.7, 10.0.0.8 and 12 more"
std::string names_of(const std::vector<std::string>& addresses) {
    std::string text;
    const std::size_t named = std::min(addresses.size(), most_named);
    for (std::size_t i = 0; i < named; ++i)
        text += (i == 0 ? "" : i + 1 == addresses.size() ? " and " : ", ") + addresses[i];
    return named == addresses.size() ? text
                                     : text + " and " + std::to_string(addresses.size() - named) + " more";
}

std::string contents_of(const CapturePlan& plan) {
    return plan.pictures ? "pictures of " + names_of(plan.addresses)
                         : "register traffic, headers and picture trailers of " + names_of(plan.addresses) +
                               ", no pictures";
}

std::string duration_words(const CapturePlan& plan) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(plan.duration);
    return seconds.count() > 0 ? span_words(seconds) : std::to_string(plan.duration.count()) + " ms";
}

/// What it ends with.
std::string end_words(const CapturePlan& plan) {
    return plan.duration.count() == 0 ? "until Ctrl-C" : "for " + duration_words(plan) + " or until Ctrl-C";
}

std::unique_ptr<CaptureOutput> output_of(const CapturePlan& plan, const std::string& filter,
                                         const CaptureWriter::Patience& patience) {
    const CaptureDescription description{plan.interface, filter, "contains " + contents_of(plan)};
    if (plan.ring.count() == 0) return std::make_unique<WholeOutput>(plan.output, description, patience);
    return std::make_unique<CaptureRing>(plan.output, description,
                                         CaptureRing::Bounds{plan.ring, plan.ring_bytes});
}

class Run {
public:
    explicit Run(const CapturePlan& plan);
    void go();

private:
    void introduce();
    void read(std::size_t most);
    void take(CapturedPacket& packet);
    void note(const Datagram& datagram);
    void tick(Clock::time_point now);
    void look_at_sockets();
    void look_for_silence(Clock::time_point now);
    void drain();
    void conclude();
    bool over(Clock::time_point now) const;
    bool waits_for_reader();

    const CapturePlan& plan_;
    const LossyOutput standard_error_{std::cerr, STDERR_FILENO};
    CaptureScreen screen_{std::cerr, STDERR_FILENO};
    const StopSignals signals_;
    LiveCapture live_;
    Clock::time_point end_ = Clock::time_point::max();
    Clock::time_point reader_end_ = Clock::time_point::max();  // known when it is over
    const std::unique_ptr<CaptureOutput> output_;
    std::set<std::uint32_t> cameras_;
    std::set<Endpoint> clients_;  // that asked a camera
    PictureCutter cutter_;
    SecondSight sight_;
    SilenceWatch silence_;
    SocketDrops drops_;
    CaptureTotals totals_;
    std::string notes_;  // for the next packet
    CapturedPacket packet_;
    CapturedPacket held_;  // the last one, which is written when another comes, or with the notes at the end
    bool holds_ = false;
    Clock::time_point next_tick_;
};

Run::Run(const CapturePlan& plan)
    : plan_(plan),
      live_(plan.interface, plan.addresses),
      output_(output_of(plan, live_.filter(), [this] { return waits_for_reader(); })),
      next_tick_(Clock::now() + tick_period) {
    for (const std::string& address : plan.addresses)
        cameras_.insert(address_of(address).value_or(0));
    if (plan.duration.count() > 0) end_ = Clock::now() + plan.duration;
}

void Run::introduce() {
    screen_.say("capturing " + names_of(plan_.addresses) + " on " +
                (plan_.interface == "any" ? "all interfaces" : "'" + plan_.interface + "'") +
                (plan_.pictures ? ", with pictures (--no-pictures leaves them out)" : ", without pictures"));
    const std::string file = plan_.output == "-" ? "standard output" : "'" + plan_.output.string() + "'";
    if (plan_.ring.count() == 0) return screen_.say("to " + file + ", " + end_words(plan_));
    screen_.say("the last " + span_words(std::chrono::duration_cast<std::chrono::seconds>(plan_.ring)) +
                ", at most " + byte_words(plan_.ring_bytes) + ", will be in " + file + " at the end" +
                (plan_.duration.count() == 0 ? "" : ", in " + duration_words(plan_)) +
                "; until then they are in '" + output_->place().string() + "'");
}

void Run::go() {
    introduce();
    try {
        for (Clock::time_point now = Clock::now(); !over(now); now = Clock::now()) {
            live_.wait(pass);
            read(most_of_pass);
            if (plan_.output == "-") output_->flush(now);
            if (now >= next_tick_) tick(now);
        }
        drain();
        conclude();
    } catch (const Failure& failure) {
        if (totals_.packets == 0 || plan_.output == "-") throw;
        throw Failure(failure.what() + ("; what was captured is in '" + output_->place().string() + "'"));
    }
}

bool Run::over(Clock::time_point now) const {
    return signals_.requested() || now >= end_ || output_->reader_gone();
}

/// As long as it captures, and then a little: what is not read by then is lost.
bool Run::waits_for_reader() {
    const auto now = Clock::now();
    if (over(now) && reader_end_ == Clock::time_point::max()) reader_end_ = now + after_end;
    return now < reader_end_;
}

void Run::read(std::size_t most) {
    for (std::size_t i = 0; i < most && live_.next(packet_); ++i)
        take(packet_);
}

void Run::take(CapturedPacket& packet) {
    if (const auto datagram = datagram_of(packet)) {
        if (sight_.seen(packet, *datagram)) {
            ++totals_.repeated;
            return;
        }
        note(*datagram);
    }
    if (!plan_.pictures) cutter_.cut(packet);
    packet.comment = std::exchange(notes_, {});
    ++totals_.packets;
    std::swap(packet, held_);
    if (std::exchange(holds_, true)) output_->write(packet, Clock::now());
}

void Run::note(const Datagram& datagram) {
    const auto now = Clock::now();
    if (cameras_.count(datagram.from.address) > 0) silence_.heard(datagram.from.address, now);
    if (datagram.to.port != link::camera_port || cameras_.count(datagram.to.address) == 0) return;
    silence_.asked(datagram.to.address, now);
    if (clients_.size() >= most_clients) clients_.clear();
    clients_.insert(datagram.from);
}

void Run::tick(Clock::time_point now) {
    next_tick_ = now + tick_period;
    totals_.missed = live_.counts().missed;
    look_at_sockets();
    output_->flush(now);
    if (plan_.until_silent) look_for_silence(now);
    screen_.update(totals_, output_->kept(), now);
}

void Run::look_at_sockets() {
    const auto is_clients = [&](const Endpoint& socket) {
        return std::any_of(clients_.begin(), clients_.end(), [&](const Endpoint& client) {
            return client.port == socket.port && (socket.address == 0 || socket.address == client.address);
        });
    };
    for (const DropNote& drops : drops_.look(is_clients)) {
        notes_ += (notes_.empty() ? "" : "\n") + drop_note(drops);
        totals_.dropped += drops.added;
    }
}

void Run::look_for_silence(Clock::time_point now) {
    const auto silent = silence_.silent(now);
    if (!silent || end_ <= now + after_silence) return;
    end_ = now + after_silence;
    screen_.say(clock_words(utc_ms()) + "  " + address_text(*silent) +
                " does not answer any more: ending in 10 s");
}

/// What came before the end, and what the sockets' counters have to say about it.
void Run::drain() {
    const auto end = Clock::now() + kernel_delay;
    while (Clock::now() < end) {
        live_.wait(pass / 2);
        read(most_of_pass);
    }
    look_at_sockets();
    if (!holds_) return;
    if (!notes_.empty()) held_.comment += (held_.comment.empty() ? "" : "\n") + notes_;
    output_->write(held_, Clock::now());
}

void Run::conclude() {
    const CaptureCounts counts = live_.counts();
    totals_.missed = counts.missed;
    const CaptureOutput::Kept kept = output_->kept();
    if (plan_.ring.count() > 0) screen_.say("writing '" + plan_.output.string() + "'");
    output_->finish(counts);
    if (output_->reader_gone()) return screen_.say("nobody reads standard output any more: ended");
    if (totals_.packets == 0)
        screen_.say("nothing came from or to " + names_of(plan_.addresses) + " on " + plan_.interface);
    if (kept.packets == 0) return;
    const auto moment = [](std::int64_t time_ns) { return clock_words(time_ns / 1'000'000, true); };
    screen_.say((plan_.output == "-" ? "" : "'" + plan_.output.string() + "': ") + kept_words(kept) + " (" +
                moment(kept.first_ns) + " to " + moment(kept.last_ns) + "), contains " + contents_of(plan_) +
                loss_words(totals_));
    if (kept.short_of_room)
        screen_.say("that is less than --ring asked for: " + byte_words(plan_.ring_bytes) +
                    " were not enough");
}

}  // namespace

int capture(const CapturePlan& plan) {
    Run(plan).go();
    return exit_done;
}

}  // namespace plendix
