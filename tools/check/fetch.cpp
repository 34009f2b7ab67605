#include "check/fetch.h"

#include <algorithm>

#include "check/block_store.h"
#include "check/packet_text.h"
#include "link/picture.h"

namespace plendix::check {
namespace {

constexpr std::size_t picture_room = 2U * 1024 * 1024;  // bytes of the driver's buffer
constexpr std::size_t no_size = 512;                    // stands for "no acknowledgement came"
constexpr milliseconds repetition{100};                 // what comes again sooner was sent twice
constexpr milliseconds longest_transfer{20'000};

std::string text_of(const Datagram& datagram) {
    return packet_text({datagram.bytes.data(), datagram.bytes.size()});
}

std::string data_of(std::size_t number, std::size_t size) {
    return "DATA " + std::to_string(number) + ", " + std::to_string(size) + " bytes";
}

class Fetch {
public:
    Fetch(Conversation& conversation, const Request& request)
        : conversation_(conversation),
          examination_(conversation.examination()),
          findings_(examination_.findings),
          request_(request) {}

    Fetched run() {
        conversation_.request(request_.packet, request_.name);
        const auto end = Clock::now() + longest_transfer;
        progress_ = Clock::now();
        while (!ended_) {
            const auto datagram = conversation_.next(std::min(deadline(), end));
            const std::string over = Clock::now() >= end ? "a transfer took too long" : examination_.over();
            if (!over.empty())
                stop(Ending::broken, over);
            else if (datagram)
                take(*datagram);
            else
                silence();
        }
        if (result_.whole()) praise();
        return std::move(result_);
    }

private:
    Clock::time_point deadline() const {
        const milliseconds patience = examination_.options.patience;
        return progress_ + (blocks_.short_seen() ? patience / 2 : patience);
    }

    void stop(Ending ending, const std::string& trouble) {
        ended_ = true;
        result_.ending = ending;
        result_.trouble = trouble;
    }

    void fail(Rule rule, const std::string& came, const std::string& expected) {
        findings_.fail(rule, {conversation_.sent(), came, expected});
    }

    std::string wanted_options() const { return "OACK blksize " + std::to_string(request_.block_size); }
    bool granted() const { return blocks_.block_size() > 0; }

    void take(const Datagram& datagram) {
        examination_.silences = 0;
        if (datagram.packet.opcode == link::Opcode::options) return on_options(datagram);
        if (datagram.packet.opcode == link::Opcode::error) return on_error(datagram);
        if (granted()) return on_data(datagram);
        if (conversation_.abandoned() || conversation_.belongs_behind(datagram)) return;
        fail(Rule::options_acknowledged, text_of(datagram), wanted_options());
        stop(Ending::broken, "data came without an OACK");
    }

    void on_error(const Datagram& datagram) {
        if (!request_.optional) fail(Rule::answers_refused, text_of(datagram), "the file");
        stop(Ending::refused, text_of(datagram));
    }

    void on_options(const Datagram& datagram) {
        if (granted()) {
            repeated(datagram, datagram.bytes == options_);
            return conversation_.acknowledge(0);
        }
        const std::size_t size = link::granted_block_size(datagram.packet).value_or(no_size);
        const std::size_t least = request_.picture ? link::h264_trailer_size : 2;
        if (size == no_size || size > request_.block_size || size <= least) {
            fail(request_.size_rule, text_of(datagram), wanted_options());
            return stop(Ending::broken, "the block size was not granted");
        }
        findings_.pass(Rule::options_acknowledged);
        findings_.pass(request_.size_rule,
                       size < request_.block_size ? "granted are " + std::to_string(size) : "");
        options_ = datagram.bytes;
        blocks_ = BlockStore(size);
        acknowledge(0, datagram, !request_.picture);
    }

    /// A picture's beginning may wait for the sensor; all else is to come without delay.
    void acknowledge(std::uint16_t block, const Datagram& datagram, bool timed) {
        if (again_)
            fail(Rule::blocks_acks, "nothing, and at the same ACK again " + text_of(datagram),
                 "it at the first ACK");
        else if (timed)
            examination_.waits.push_back(datagram.at - conversation_.sent_at());
        again_ = false;
        progress_ = arrived_ = datagram.at;
        conversation_.acknowledge(block);
    }

    void on_data(const Datagram& datagram) {
        const std::size_t number = datagram.packet.number, size = datagram.packet.rest.size;
        const std::size_t block_size = blocks_.block_size();
        if (size > block_size) {
            fail(Rule::blocks_full, text_of(datagram), data_of(number, block_size));
            return stop(Ending::broken, "a block was too long");
        }
        if (blocks_.ended() && number == blocks_.next()) {
            const std::size_t before = number - 1;
            fail(Rule::blocks_full, data_of(before, blocks_.last().size()) + ", then " + text_of(datagram),
                 data_of(before, block_size));
            return stop(Ending::broken, "a block was cut short");
        }
        if (too_many()) return;
        arrange(datagram);
    }

    void arrange(const Datagram& datagram) {
        const std::uint16_t number = datagram.packet.number;
        const bool gaps = blocks_.gaps(), first = number == 1;
        const auto due = blocks_.next();
        switch (blocks_.add(number, datagram.packet.rest)) {
            case BlockStore::Arrival::in_order:
                if (gaps)
                    findings_.fail(Rule::blocks_wait,
                                   {gap_.sent, gap_.came + ", then " + text_of(datagram), gap_.expected});
                acknowledge(number, datagram, !(first && request_.picture));
                if (blocks_.ended() && !doubtful()) finish();
                return;
            case BlockStore::Arrival::early:
                if (!gaps) gap_ = {conversation_.sent(), text_of(datagram), "DATA " + std::to_string(due)};
                return acknowledge(number, datagram, false);
            case BlockStore::Arrival::again:
                repeated(datagram, true);
                return conversation_.acknowledge(number);
            default:
                repeated(datagram, false);
                return conversation_.acknowledge(number);
        }
    }

    /// Sooner than a camera could know that its packet was lost.
    void repeated(const Datagram& datagram, bool same) {
        if (!same) fail(Rule::answers_once, text_of(datagram), "the same bytes as before");
        if (same && datagram.at - arrived_ < repetition)
            fail(Rule::answers_once, text_of(datagram), "it once");
    }

    /// A short block that is no trailer: do others follow?
    bool doubtful() const { return request_.picture && blocks_.last().size() < link::trailer_size; }

    bool too_many() {
        const std::size_t room = request_.picture ? picture_room / blocks_.block_size() - 1 : 1;
        if (blocks_.count() <= room) return false;
        const std::string came = std::to_string(blocks_.count()) + " full blocks without an end";
        fail(request_.picture ? Rule::blocks_room : Rule::registers_bytes, came,
             request_.picture ? std::to_string(room) + " at most" : data_of(1, 2));
        stop(Ending::broken, came);
        return true;
    }

    void silence() {
        if (blocks_.ended()) return finish();
        const std::string nothing =
            "nothing within " + std::to_string(examination_.options.patience.count()) + " ms";
        if (!granted()) {
            if (!request_.optional) fail(Rule::answers_all, nothing, wanted_options());
            if (!request_.optional) ++examination_.silences;
            return stop(Ending::unanswered, "no answer");
        }
        if (blocks_.short_seen() || (again_ && blocks_.gaps())) return settle();
        if (!again_) {
            again_ = true;
            progress_ = Clock::now();
            return conversation_.acknowledge(static_cast<std::uint16_t>(blocks_.next() - 1));
        }
        fail(Rule::blocks_complete, nothing, "DATA " + std::to_string(blocks_.next()));
        stop(Ending::broken, "it stopped in front of block " + std::to_string(blocks_.next()));
    }

    void settle() {
        const bool missing = blocks_.gap() == BlockStore::Gap::missing;
        findings_.fail(missing ? Rule::blocks_complete : Rule::blocks_numbers, gap_);
        stop(Ending::broken, "block " + std::to_string(blocks_.next()) + " did not come");
    }

    void finish() {
        if (blocks_.gaps()) return settle();
        result_.block_size = blocks_.block_size();
        result_.blocks = blocks_.full();
        result_.last = blocks_.last();
        result_.payload = blocks_.take_payload();
        conversation_.finished(static_cast<std::uint16_t>(blocks_.next() - 1), result_.last);
        stop(Ending::whole, {});
    }

    void praise() {
        for (const Rule rule :
             {Rule::answers_all, Rule::answers_refused, Rule::answers_port, Rule::answers_sender,
              Rule::answers_packets, Rule::answers_once, Rule::blocks_acks, Rule::blocks_end})
            findings_.pass(rule);
        if (!request_.picture) return;
        for (const Rule rule :
             {Rule::blocks_numbers, Rule::blocks_complete, Rule::blocks_full, Rule::blocks_room})
            findings_.pass(rule);
    }

    Conversation& conversation_;
    Examination& examination_;
    Findings& findings_;
    const Request& request_;
    Fetched result_;
    Clock::time_point progress_{}, arrived_{};  // of the last packet that was new
    link::Bytes options_;
    BlockStore blocks_;
    Evidence gap_;  // the first block whose turn it was not
    bool ended_ = false;
    bool again_ = false;  // the last acknowledgement was sent twice
};

}  // namespace

Request request_for(const std::string& name, bool picture, bool optional) {
    return {name, link::read_request(name), picture, optional, link::usual_block_size, Rule::options_size};
}

Fetched fetch(Conversation& conversation, const Request& request) {
    return Fetch(conversation, request).run();
}

}  // namespace plendix::check
