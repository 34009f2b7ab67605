#include "camera/transfer.h"

#include <algorithm>

namespace plendix::camera {

namespace {

constexpr std::size_t greatest_block = 65535;  // block numbers are 16-bit words

std::size_t last_block(const Answer& answer, std::size_t block_size) {
    const std::size_t size = answer.payload.size();
    if (answer.picture()) return (size + block_size - 1) / block_size + 1;
    return size / block_size + 1;  // an empty block ends a file of whole blocks
}

}  // namespace

Transfer::Transfer(std::shared_ptr<const Answer> answer, std::size_t block_size, bool options)
    : answer_(std::move(answer)), block_size_(block_size), due_(options ? 0 : 1), last_(0) {
    if (answer_->trailer.size() >= block_size)
        throw Refused(ErrorCode::option, "a picture needs a blksize above " +
                                             std::to_string(answer_->trailer.size()) + ", not " +
                                             std::to_string(block_size));
    const std::size_t last = last_block(*answer_, block_size);
    if (last > greatest_block)
        throw Refused(ErrorCode::option,
                      "the picture has too many blocks with blksize " + std::to_string(block_size));
    last_ = static_cast<std::uint32_t>(last);
}

bool Transfer::accept(std::uint16_t block) {
    if (block != due_) return false;
    ++due_;
    return true;
}

std::optional<Bytes> Transfer::due() const {
    if (due_ > last_) return std::nullopt;
    if (awaits_options()) return option_acknowledgement(block_size_);
    Bytes packet = data_header(static_cast<std::uint16_t>(due_), block_size_);
    if (due_ == last_ && answer_->picture()) {
        packet.insert(packet.end(), answer_->trailer.begin(), answer_->trailer.end());
        return packet;
    }
    const Bytes& payload = answer_->payload;
    const std::size_t begin = (due_ - 1) * block_size_;
    const std::size_t count = std::min(block_size_, payload.size() - begin);
    const auto from = payload.begin() + static_cast<std::ptrdiff_t>(begin);
    packet.insert(packet.end(), from, from + static_cast<std::ptrdiff_t>(count));
    if (answer_->picture()) packet.resize(4 + block_size_, 0);
    return packet;
}

}  // namespace plendix::camera
