// Datagrams of anybody, from any port at any time, and the network's errors against the probe of one address.
#include <algorithm>
#include <cerrno>
#include <optional>
#include <vector>

#include "fuzz.h"
#include "host/plain_text.h"
#include "link/file_name.h"
#include "probe/dialog.h"
#include "probe/finding_words.h"

namespace {

using namespace plendix;
using std::chrono::milliseconds;
using Bytes = link::Bytes;

constexpr std::uint16_t transfer_port = 4000;

class Address {
public:
    explicit Address(Input& input) : input_(input) {
        wish_.timeout = milliseconds{300 + input.byte() * 16};
        wish_.reads = input.byte() % 30;
        wish_.write = input.byte() % 4 == 0;
    }

    void play() {
        dialog_.emplace(wish_, now_);
        for (hear(); !input_.empty() && !dialog_->done(); hear())
            step();
        for (int ticks = 0; !dialog_->done(); hear()) {
            now_ = dialog_->deadline();
            dialog_->tick(now_);
            require(++ticks < 1000);
        }
        require(now_ - Time{} <= 10 * wish_.timeout + wish_.reads * milliseconds{300} + played_);
        judge(dialog_->finding());
    }

private:
    using Time = ProbeDialog::Time;

    void step() {
        const std::uint8_t kind = input_.byte();
        if (kind < 30) {
            now_ += milliseconds{kind * kind};
            played_ += milliseconds{kind * kind};
            dialog_->tick(now_);
        } else if (kind < 33) {
            heard_ = true;
            dialog_->fail(kind % 2 != 0 ? ECONNREFUSED : EMFILE, now_);
        } else {
            const Bytes bytes = datagram(kind);
            const auto port = static_cast<std::uint16_t>(kind % 16 == 0 ? input_.word() : transfer_port);
            heard_ = true;
            dialog_->take({bytes.data(), bytes.size()}, port, now_);
        }
    }

    Bytes datagram(std::uint8_t kind) {
        std::string text;
        if (kind < 110) text = std::string("\0\6blksize\0001450\0", 15);
        if (kind >= 110 && kind < 180) text = std::string("\0\3\0\1", 4) + input_.bytes(2);
        if (kind >= 180 && kind < 200) text = std::string("\0\3\0\2", 4) + input_.bytes(90 + kind % 8);
        if (kind >= 200 && kind < 210) text = std::string("\0\5\0\1", 4) + input_.bytes(input_.byte());
        if (kind >= 210 && kind < 220) text = std::string("\0\3\0\1", 4) + std::string(input_.word(), 'x');
        if (kind >= 220 && kind < 230) text = std::string("\0\6", 2) + input_.bytes(input_.byte());
        if (kind >= 230 && kind < 235) text.assign(last_request_.begin(), last_request_.end());
        if (kind >= 235) text = input_.bytes(input_.byte());
        return {text.begin(), text.end()};
    }

    /// What the dialog sends: never a second request while the first may be on its way, no write that it was
    /// not told to make, and no more than it is answered.
    void hear() {
        for (int count = 0; const auto next = dialog_->outgoing(); ++count) {
            require(count < 4 && next->bytes.size() < 200);
            const auto packet = link::parse_packet({next->bytes.data(), next->bytes.size()});
            require(packet.has_value());
            if (const auto request = link::parse_request(*packet)) hear_request(next->bytes, request->name);
        }
    }

    void hear_request(const Bytes& bytes, const std::string& name) {
        const link::FileName file = link::parse_file_name(name);
        require(file.kind != link::Kind::other);
        require(file.kind != link::Kind::register_write ||
                (wish_.write && file.number == 25 && file.value == 48));
        require(heard_ || last_request_.empty() || now_ - requested_at_ >= milliseconds{300});
        heard_ = false;
        requested_at_ = now_;
        last_request_ = bytes;
    }

    void judge(const Finding& finding) const {
        require(finding.what != What::unasked && finding.remarks.size() < 40);
        require(finding.reads.lost <= finding.reads.made && finding.reads.made <= wish_.reads);
        require(finding.answer.first.size() <= link::OddAnswer::most_shown);
        const std::string words = finding_words(finding);
        require(printable(words) == words && words.size() < 400);
        for (const std::string& remark : finding.remarks)
            require(printable(remark) == remark && remark.size() < 400);
    }

    Input& input_;
    ProbeWish wish_;
    Time now_{};
    milliseconds played_{0};
    std::optional<ProbeDialog> dialog_;
    bool heard_ = false;
    Time requested_at_{};
    Bytes last_request_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Address(input).play();
    return 0;
}
