#include "camera/wire/transfer.h"

#include <algorithm>

namespace plendix::camera {

namespace {

constexpr std::size_t greatest_block = 65535;  // block numbers are 16-bit words

std::size_t last_block(const Answer& answer, std::size_t block_size) {
    const std::size_t size = answer.size();
    if (answer.picture()) return (size + block_size - 1) / block_size + 1;
    return size / block_size + 1;  // an empty block ends a file of whole blocks
}

}  // namespace

Transfer::Transfer(Answer answer, std::size_t block_size, bool options, unsigned window)
    : answer_(std::move(answer)),
      block_size_(block_size),
      window_(window),
      next_(options ? 0 : 1),
      awaited_(next_),
      last_(0) {
    if (answer_.trailer.size() >= block_size)
        throw Refused(ErrorCode::option, "a picture needs a blksize above " +
                                             std::to_string(answer_.trailer.size()) + ", not " +
                                             std::to_string(block_size));
    const std::size_t last = last_block(answer_, block_size);
    if (last > greatest_block)
        throw Refused(ErrorCode::option,
                      "the picture has too many blocks with blksize " + std::to_string(block_size));
    last_ = static_cast<std::uint32_t>(last);
}

bool Transfer::accept(std::uint32_t block) {
    if (block < awaited_ || block >= next_) return false;
    awaited_ = block + 1;
    return true;
}

bool Transfer::due() const {
    if (sent()) return false;
    return next_ == 0 || (awaited_ > 0 && next_ < awaited_ + window_);
}

Packet Transfer::take() {
    const std::uint32_t number = next_++;
    if (number == 0) return {option_acknowledgement(block_size_), 0, false};
    return {block(number), number, number == last_};
}

Bytes Transfer::block(std::uint32_t number) const {
    Bytes packet = data_header(static_cast<std::uint16_t>(number), block_size_);
    if (number == last_ && answer_.picture()) {
        packet.insert(packet.end(), answer_.trailer.begin(), answer_.trailer.end());
        return packet;
    }
    const std::size_t begin = (number - 1) * block_size_;
    const std::size_t count = std::min(block_size_, answer_.size() - begin);
    const auto from = answer_.data->begin() + static_cast<std::ptrdiff_t>(answer_.begin + begin);
    packet.insert(packet.end(), from, from + static_cast<std::ptrdiff_t>(count));
    if (answer_.picture()) packet.resize(4 + block_size_, 0);
    return packet;
}

}  // namespace plendix::camera
