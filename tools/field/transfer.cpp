#include "field/transfer.h"

#include <algorithm>
#include <utility>

namespace plendix {
namespace {

constexpr std::uint64_t second_ns = 1'000'000'000;
// A driver gives a transfer up after ten seconds of silence, and goes on from another port. The system may
// give the one that it had to somebody else then.
constexpr std::uint64_t patience_ns = 10 * second_ns, longest_silence_ns = 3 * patience_ns;
// Of one transfer: a camera that never ends it is cut here. A picture has at most some 1,450 blocks.
constexpr std::size_t most_steps = 20'000;
constexpr std::size_t most_clients = 4096;

link::View payload_of(const Datagram& datagram) {
    return {datagram.payload, datagram.size};
}

/// A compressed picture has no such ending, but the zeros that fill its last block.
bool ends_in_zeros(const Datagram& datagram) {
    constexpr std::size_t enough = 4;
    if (datagram.size != datagram.original_size || datagram.size < enough) return false;
    const std::uint8_t* const end = datagram.payload + datagram.size;
    return std::all_of(end - enough, end, [](std::uint8_t byte) { return byte == 0; });
}

/// 0 where a clock was set back. A file may tell any times.
std::uint64_t elapsed_ns(std::int64_t since, std::int64_t now) {
    return now <= since ? 0 : static_cast<std::uint64_t>(now) - static_cast<std::uint64_t>(since);
}

}  // namespace

void TransferReader::add(const Datagram& datagram) {
    if (datagram.time_ns < last_look_ns_ || elapsed_ns(last_look_ns_, datagram.time_ns) >= second_ns)
        end_idle(datagram.time_ns);
    if (datagram.to.port == link::camera_port) {
        const auto packet = link::parse_packet(payload_of(datagram));
        const auto request = packet ? link::parse_request(*packet) : std::nullopt;
        if (request) return begin(datagram, *request);
    }
    if (const auto found = open_.find(datagram.from); found != open_.end())
        return append(found->second, datagram, Step::From::client);
    const auto found = open_.find(datagram.to);
    if (found == open_.end()) {
        ++unassigned_;
        return;
    }
    const bool camera = datagram.from.address == found->second.camera;
    append(found->second, datagram, camera ? Step::From::camera : Step::From::stranger);
}

void TransferReader::begin(const Datagram& datagram, const link::ReadRequest& request) {
    if (const auto found = open_.find(datagram.from); found != open_.end())
        end(found, elapsed_ns(found->second.steps.back().time_ns, datagram.time_ns) <= patience_ns);
    if (open_.size() >= most_clients) finish();
    Transfer& transfer = open_[datagram.from];
    transfer.camera = datagram.to.address;
    transfer.client = datagram.from;
    transfer.request = request.name;
    transfer.name = link::parse_file_name(request.name);
    append(transfer, datagram, Step::From::client);
}

void TransferReader::append(Transfer& transfer, const Datagram& datagram, Step::From from) const {
    if (transfer.steps.size() >= most_steps) return;
    const Endpoint& other = from == Step::From::client ? datagram.to : datagram.from;
    Step& step = transfer.steps.emplace_back();
    step.time_ns = datagram.time_ns;
    step.from = from;
    step.address = other.address;
    step.port = other.port;
    step.cut = datagram.size < datagram.original_size;
    step.zeros = ends_in_zeros(datagram);
    step.ip_id = datagram.ip_id;
    step.size = datagram.original_size;
    step.captured = datagram.size;
    step.position = datagram.position;
    const std::size_t kept = std::min(datagram.size, kept_bytes_);
    step.bytes.assign(datagram.payload, datagram.payload + kept);
}

void TransferReader::end(std::map<Endpoint, Transfer>::iterator found, bool by_request) {
    found->second.ended = by_request;
    over_.push_back(std::move(found->second));
    open_.erase(found);
}

void TransferReader::end_idle(std::int64_t now_ns) {
    last_look_ns_ = now_ns;
    for (auto at = open_.begin(); at != open_.end();) {
        const auto next = std::next(at);
        if (elapsed_ns(at->second.steps.back().time_ns, now_ns) > longest_silence_ns) end(at, false);
        at = next;
    }
}

void TransferReader::finish() {
    std::vector<std::pair<std::int64_t, Endpoint>> order;
    for (const auto& [client, transfer] : open_)
        order.emplace_back(transfer.begin_ns(), client);
    std::sort(order.begin(), order.end());
    for (const auto& [begin, client] : order)
        end(open_.find(client), false);
}

bool TransferReader::take(Transfer& transfer) {
    if (over_.empty()) return false;
    transfer = std::move(over_.front());
    over_.pop_front();
    return true;
}

}  // namespace plendix
