#include "field/replay_transfer.h"

#include <algorithm>
#include <limits>
#include <optional>

#include "link/picture.h"

namespace plendix {
namespace {

constexpr std::size_t plain_block_size = 512;  // RFC 1350: without an option acknowledgement
constexpr std::size_t data_header = 4;
constexpr std::int64_t farthest_ns = 4'000'000'000'000'000'000;  // so that differences are numbers, too
constexpr std::uint32_t acknowledgement_head = 4U << 16U;        // and the block's number

std::uint32_t time_us(const Transfer& transfer, const Step& step, std::uint32_t least) {
    const std::int64_t begin = transfer.begin_ns();
    if (step.time_ns <= begin) return least;
    const auto since = (static_cast<std::uint64_t>(step.time_ns) - static_cast<std::uint64_t>(begin)) / 1000;
    constexpr std::uint64_t most = std::numeric_limits<std::uint32_t>::max();
    return std::max(least, static_cast<std::uint32_t>(std::min(since, most)));
}

ReplayWay way_of(const Step& step) {
    if (step.from == Step::From::stranger) return ReplayWay::stranger;
    return step.port == link::camera_port ? ReplayWay::request_port : ReplayWay::transfer_port;
}

/// Follows what the client gets, as far as the packets' beginnings tell it.
class Receipt {
public:
    explicit Receipt(ReplayTransfer& transfer) : transfer_(transfer) {}

    void take(const Step& step) {
        const auto packet = link::parse_packet({step.bytes.data(), step.bytes.size()});
        if (!packet) return;
        if (packet->opcode == link::Opcode::options)
            block_size_ = link::granted_block_size(*packet).value_or(block_size_);
        if (packet->opcode != link::Opcode::data || step.size < data_header ||
            step.size - data_header >= block_size_)
            return;
        last_ = packet->number;
        transfer_.ended = true;
        if (const auto trailer = link::parse_trailer(packet->rest)) transfer_.key = trailer->key;
        if (packet->rest.size == 2 && transfer_.value < 0)
            transfer_.value = packet->rest.data[0] << 8 | packet->rest.data[1];
    }
    void hear(std::uint32_t head) {
        if (last_ && head == (acknowledgement_head | *last_)) transfer_.taken = true;
    }

private:
    ReplayTransfer& transfer_;
    std::size_t block_size_ = plain_block_size;
    std::optional<std::uint16_t> last_;  // number of the short block
};

void add_send(ReplayTransfer& made, const link::Bytes& packet, std::uint16_t after) {
    ReplaySend& send = made.sends.emplace_back();
    send.position = made.made.size();
    send.size = send.captured = static_cast<std::uint16_t>(packet.size());
    send.after = after;
    made.made.insert(made.made.end(), packet.begin(), packet.end());
}

}  // namespace

std::uint32_t head_of(link::View datagram) {
    std::uint32_t head = 0;
    for (std::size_t i = 0; i < 4; ++i)
        head = head << 8U | (i < datagram.size ? datagram.data[i] : 0U);
    return head;
}

ReplayTransferPointer replay_of(const Transfer& transfer) {
    auto made = std::make_shared<ReplayTransfer>();
    made->request = transfer.request;
    made->name = transfer.name;
    made->begin_ns = std::clamp(transfer.begin_ns(), -farthest_ns, farthest_ns);
    Receipt receipt(*made);
    std::uint32_t time = 0;
    for (const Step& step : transfer.steps) {
        time = time_us(transfer, step, time);
        if (step.from == Step::From::client) {
            made->cues.push_back({head_of({step.bytes.data(), step.bytes.size()}), time});
            receipt.hear(made->cues.back().head);
            continue;
        }
        made->sends.push_back({step.position, time, static_cast<std::uint16_t>(step.size),
                               static_cast<std::uint16_t>(step.captured),
                               static_cast<std::uint16_t>(made->cues.size() - 1), way_of(step)});
        made->cut = made->cut || step.captured < step.size;
        made->answered = made->answered || step.from == Step::From::camera;
        receipt.take(step);
    }
    made->taken = made->taken || transfer.ended;
    made->cues.shrink_to_fit();
    made->sends.shrink_to_fit();
    return made;
}

ReplayTransferPointer made_answer(std::uint16_t value, bool options) {
    auto made = std::make_shared<ReplayTransfer>();
    made->taken = made->answered = true;
    made->value = value;
    made->cues.push_back({});
    if (options) {
        const std::string granted =
            std::string("\0\6blksize\0", 10) + std::to_string(link::usual_block_size) + '\0';
        add_send(*made, link::Bytes(granted.begin(), granted.end()), 0);
        made->cues.push_back({acknowledgement_head, 0});
    }
    const auto high = static_cast<std::uint8_t>(value >> 8U), low = static_cast<std::uint8_t>(value);
    add_send(*made, {0, 3, 0, 1, high, low}, static_cast<std::uint16_t>(made->cues.size() - 1));
    made->cues.push_back({acknowledgement_head | 1U, 0});
    return made;
}

ReplayTransferPointer made_refusal(const std::string& words) {
    auto made = std::make_shared<ReplayTransfer>();
    made->cues.push_back({});
    link::Bytes packet{0, 5, 0, 1};  // RFC 1350: file not found
    packet.insert(packet.end(), words.begin(), words.end());
    packet.push_back(0);
    add_send(*made, packet, 0);
    return made;
}

}  // namespace plendix
