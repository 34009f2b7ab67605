#include "field/inspect_flow.h"

#include <algorithm>

namespace plendix {
namespace {

constexpr std::size_t header = 4;          // opcode and number
constexpr std::size_t refused_size = 512;  // stands for "none was granted"

void count(Strays& strays, const Step& step) {
    if (strays.count++ == 0) strays.first_ns = step.time_ns;
    strays.address = step.address;
}

class Follower {
public:
    Flow follow(const Transfer& transfer) {
        flow_.since_ns = flow_.end_ns = request_ns_ = transfer.begin_ns();
        for (std::size_t i = 1; i < transfer.steps.size(); ++i) {
            const Step& step = transfer.steps[i];
            const auto packet = link::parse_packet({step.bytes.data(), step.bytes.size()});
            if (step.from == Step::From::client)
                sent(step, packet);
            else
                came(step, packet);
        }
        believe_the_camera();
        return std::move(flow_);
    }

private:
    void sent(const Step& step, const std::optional<link::Packet>& packet) {
        if (packet && packet->opcode == link::Opcode::error) flow_.said_so = true;
        if (packet && packet->opcode == link::Opcode::acknowledgement) acknowledge(packet->number);
        flow_.since_ns = flow_.end_ns = step.time_ns;
        flow_.too_late_ms = 0;  // it had not given up
        answered_ = false;
    }

    void acknowledge(std::uint16_t number) {
        flow_.acknowledged.insert(number);
        last_acknowledged_ = number;
        if (flow_.blocks.count(static_cast<std::uint16_t>(number + 1)) != 0) flow_.ahead = true;
    }

    void came(const Step& step, const std::optional<link::Packet>& packet) {
        if (step.from == Step::From::stranger) count(flow_.strangers, step);
        if (over()) {
            if (packet && packet->opcode == link::Opcode::data) flow_.behind_end.insert(packet->number);
            return;
        }
        if (step.size < header) {
            flow_.closing = &step;
            return;
        }
        if (!packet) {
            if (step.from == Step::From::camera) count(flow_.garbage, step);
            return;
        }
        if (packet->opcode == link::Opcode::data) take_data(step, *packet);
        if (packet->opcode == link::Opcode::options) take_options(step, *packet);
        if (packet->opcode == link::Opcode::error) take_error(step, *packet);
    }

    /// The first answer to the client's last datagram.
    void time_answer(const Step& step, bool next_block) {
        flow_.answered = true;
        flow_.end_ns = step.time_ns;
        if (answered_) return;
        answered_ = true;
        const std::int64_t waited = nanoseconds_between(flow_.since_ns, step.time_ns);
        if (waited > patience_ns) flow_.too_late_ms = whole_milliseconds(waited);
        if (flow_.timing.answer < 0)
            flow_.timing.answer = nanoseconds_between(request_ns_, step.time_ns);
        else if (next_block)
            flow_.timing.blocks.push_back(waited);
        if (waited <= flow_.timing.slowest) return;
        flow_.timing.slowest = waited;
        flow_.timing.slowest_at = step.time_ns;
    }

    void take_options(const Step& step, const link::Packet& packet) {
        time_answer(step, false);
        flow_.options = true;
        flow_.options_ns = step.time_ns;
        const std::size_t granted = link::granted_block_size(packet).value_or(flow_.block_size);
        flow_.block_size = granted == refused_size ? 0 : granted;
    }

    void take_error(const Step& step, const link::Packet& packet) {
        time_answer(step, false);
        flow_.error = &step;
        flow_.error_code = packet.number;
        flow_.error_words = link::error_words(packet);
    }

    void take_data(const Step& step, const link::Packet& packet) {
        const std::size_t payload = step.size - header;
        if (flow_.block_size == 0) {  // what is left of the transfer before has other numbers, or is shorter
            if (!flow_.options && (packet.number != 1 || payload < refused_size)) return;
            if (!flow_.options) flow_.data_without_options = true;
            time_answer(step, false);
            return;
        }
        time_answer(step, last_acknowledged_ + 1 == packet.number);
        const bool again =
            !flow_.blocks.try_emplace(packet.number, Flow::Block{step.time_ns, step.zeros, step.cut}).second;
        flow_.repeated = again && packet.number == last_acknowledged_;
        if (payload >= flow_.block_size) return;
        flow_.end = &step;
        flow_.end_number = packet.number;
        flow_.blocks.erase(packet.number);
    }

    bool over() const { return flow_.end != nullptr || flow_.closing != nullptr; }

    /// A camera that waits for each acknowledgement has got those behind which it went on: the capture
    /// missed them.
    void believe_the_camera() {
        if (flow_.ahead || flow_.acknowledged.empty()) return;
        const std::uint16_t last = *flow_.acknowledged.rbegin();
        for (const auto& [number, block] : flow_.blocks)
            if (number < last && flow_.acknowledged.insert(number).second) ++flow_.unseen_acknowledgements;
    }

    Flow flow_;
    std::int64_t request_ns_ = 0;
    std::uint32_t last_acknowledged_ = 0x10000;  // no block's number
    bool answered_ = false;                      // since the client's last datagram
};

}  // namespace

std::uint32_t Flow::unseen() const {
    std::uint32_t count = unseen_acknowledgements;
    for (const std::uint16_t number : acknowledged)
        if (number != 0 && blocks.count(number) == 0 && (end == nullptr || end_number != number)) ++count;
    return count;
}

Flow follow(const Transfer& transfer) {
    return Follower().follow(transfer);
}

}  // namespace plendix
