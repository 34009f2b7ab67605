#include "field/replay_camera.h"

#include <algorithm>
#include <utility>

#include "host/plain_text.h"

namespace plendix {
namespace {

using Kind = ReplayChoice::Kind;

constexpr std::size_t longest_request = 4096;
constexpr std::size_t most_sessions = 32;  // a client that goes away leaves one behind
constexpr std::size_t most_told = 32;      // lines, each once
constexpr int most_per_turn = 64;          // datagrams, so that no camera holds up the others
// What is due so soon is sent at once: waiting for it would take longer.
constexpr std::chrono::microseconds grain{50};
// Of no camera: what came from another address in the capture comes from here.
constexpr std::uint32_t stranger_address = 0x7FFEFEFD;  // 127.254.254.253

std::string described(const link::FileName& name) {
    return std::string(name.kind == link::Kind::h264 ? "H.264" : "JPEG") + " of " +
           std::to_string(name.area.width()) + 'x' + std::to_string(name.area.height()) +
           (name.half ? " at half size" : "");
}

bool same_picture(const link::FileName& a, const link::FileName& b) {
    return a.kind == b.kind && a.half == b.half && a.area == b.area;
}

}  // namespace

ReplayCamera::ReplayCamera(const ReplayCapture& capture, const CapturedCamera& camera, std::uint32_t address,
                           const ReplayOptions& options, ReplayLog log)
    : capture_(capture),
      options_(options),
      address_(address_text(address)),
      log_(std::move(log)),
      sockets_{ServerSocket(address, link::camera_port), ServerSocket(address, 0),
               ServerSocket(stranger_address, 0)},
      script_(camera.transfers, options.loop),
      buffer_(longest_request) {}

std::array<int, 3> ReplayCamera::descriptors() const {
    return {sockets_[requests].descriptor(), sockets_[transfers].descriptor(),
            sockets_[stranger].descriptor()};
}

void ReplayCamera::serve(std::size_t socket, Time now) {
    // A client acknowledges its last block before it asks again: that acknowledgement comes first.
    if (socket == requests) {
        take(transfers, now);
        take(stranger, now);
    }
    take(socket, now);
}

void ReplayCamera::take(std::size_t socket, Time now) {
    Endpoint client;
    for (int i = 0; i < most_per_turn; ++i) {
        buffer_.resize(longest_request);
        const auto size = sockets_[socket].receive(buffer_, client);
        if (!size) return;
        const link::View datagram{buffer_.data(), *size};
        const auto packet = link::parse_packet(datagram);
        const auto asked = packet && socket == requests ? link::parse_request(*packet) : std::nullopt;
        if (asked) {
            request(*asked, client, now);
        } else if (const auto found = sessions_.find(client); found != sessions_.end()) {
            found->second.hear(head_of(datagram), now);
        } else {
            ++counts_.unknown;
        }
    }
}

void ReplayCamera::request(const link::ReadRequest& request, const Endpoint& client, Time now) {
    if (over()) {
        ++counts_.after_end;
        return;
    }
    const bool options = std::any_of(request.options.begin(), request.options.end(),
                                     [](const auto& option) { return option.first == "blksize"; });
    const bool anew = client != last_client_;
    const ReplayChoice choice = script_.choose(request.name, options, anew);
    if (choice.kind == Kind::picture || choice.kind == Kind::none) last_client_ = client;
    count(choice);
    tell(choice, request.name);
    if (choice.kind == Kind::picture) now = time_of_request(*choice.transfer, now);
    if (choice.transfer) begin(client, choice.transfer, now);
}

/// A camera has pictures at its own pace, and a request waits for the next one: of a client that asks
/// later than the one in the capture, the answer is as long behind that to the request before as it was
/// there, and not later still. Returns when the request would have come for that.
ReplayCamera::Time ReplayCamera::time_of_request(const ReplayTransfer& picture, Time now) {
    if (picture.sends.empty()) return now;
    const std::chrono::microseconds delay(picture.sends.front().time_us);
    const std::int64_t begin_ns = picture.begin_ns + std::chrono::nanoseconds(delay).count();
    const bool follows = last_begin_ != Time{} && begin_ns > last_begin_ns_;
    const std::chrono::nanoseconds distance(follows ? begin_ns - last_begin_ns_ : 0);
    const Time asked = follows ? std::clamp(last_begin_ + distance - delay, now - delay, now) : now;
    last_begin_ns_ = begin_ns;
    last_begin_ = asked + delay;
    return asked;
}

void ReplayCamera::begin(const Endpoint& client, ReplayTransferPointer transfer, Time now) {
    if (const auto found = sessions_.find(client); found != sessions_.end()) {
        // What the camera had sent by then came before the answer to this request.
        ReplaySession& before = found->second;
        while (const ReplaySend* send = before.hurry(now))
            transmit(before.transfer(), *send, client);
        sessions_.erase(found);
    }
    make_room();
    sessions_.emplace(client, ReplaySession(std::move(transfer), options_.delays, now));
}

/// The one that has the longest nothing to do is of a client that is not there any more.
void ReplayCamera::make_room() {
    if (sessions_.size() < most_sessions) return;
    const auto idle = std::max_element(sessions_.begin(), sessions_.end(), [](const auto& a, const auto& b) {
        return a.second.due() < b.second.due();
    });
    sessions_.erase(idle);
}

ReplayCamera::Time ReplayCamera::due() const {
    Time due = ReplaySession::never;
    for (const auto& [client, session] : sessions_)
        due = std::min(due, session.due());
    return due;
}

void ReplayCamera::run(Time now) {
    for (auto& [client, session] : sessions_)
        while (const ReplaySend* send = session.next(now + grain))
            transmit(session.transfer(), *send, client);
}

void ReplayCamera::transmit(const ReplayTransfer& transfer, const ReplaySend& send, const Endpoint& client) {
    if (!capture_.read(transfer, send, buffer_))
        tell_once("the capture is shorter than it was: zeros instead");
    const std::size_t from = send.way == ReplayWay::stranger       ? stranger
                             : send.way == ReplayWay::request_port ? requests
                                                                   : transfers;
    sockets_[from].send({buffer_.data(), buffer_.size()}, client);
}

bool ReplayCamera::over() const {
    if (!script_.over()) return false;
    const auto last = sessions_.find(last_client_);
    return last == sessions_.end() || last->second.due() == ReplaySession::never;
}

ReplayCounts ReplayCamera::counts() const {
    ReplayCounts counts = counts_;
    counts.rounds = script_.rounds();
    return counts;
}

void ReplayCamera::count(const ReplayChoice& choice) {
    counts_.skipped += choice.skipped;
    switch (choice.kind) {
        case Kind::picture:
            ++counts_.played;
            break;
        case Kind::registers:
            ++counts_.registers;
            break;
        case Kind::repeated:
            ++counts_.repeated;
            break;
        case Kind::made_up:
            ++counts_.made_up;
            break;
        case Kind::failure:
            ++counts_.failures;
            break;
        case Kind::unknown:
        case Kind::none:
            ++counts_.unknown;
            break;
    }
}

void ReplayCamera::tell(const ReplayChoice& choice, const std::string& asked) {
    const link::FileName name = link::parse_file_name(asked);
    if (choice.skipped > 0)
        tell_once(std::to_string(choice.skipped) +
                  " pictures left out: the stream begins here, and they are not key frames");
    if (choice.kind == Kind::picture && !same_picture(name, choice.transfer->name))
        tell_once("asked for " + described(name) + ", plays " + described(choice.transfer->name) +
                  " as it was asked for in the capture");
    if (choice.kind == Kind::made_up)
        tell_once("not all that is asked is in the capture: registers are answered with what goes with it");
    if (choice.kind == Kind::unknown) tell_once("'" + printable(asked) + "' is not in the capture: refused");
    if (choice.kind == Kind::none) tell_once("there is no picture in the capture");
}

void ReplayCamera::tell_once(const std::string& text) {
    if (!log_ || told_.size() >= most_told || !told_.insert(text).second) return;
    log_(address_ + ' ' + text + (told_.size() == most_told ? "; nothing more is told of it" : ""));
}

}  // namespace plendix
