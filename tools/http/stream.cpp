#include "http/stream.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace plendix {

void Stream::wake() {
    const std::lock_guard<std::mutex> lock(mutex_);
    woken_ = true;
    if (!resume_) return;
    resume_();
    resume_ = nullptr;
}

/// Whether there is something to take.
bool PieceStream::refill() {
    while (waiting_.empty() && !end_) {
        Pieces pieces = next();
        end_ = pieces.end;
        for (SharedBytes& bytes : pieces.bytes)
            if (bytes.size > 0) waiting_.push_back(std::move(bytes));
        if (pieces.bytes.empty()) break;
    }
    return !waiting_.empty();
}

StreamRead PieceStream::read(std::uint8_t* to, std::size_t size) {
    std::size_t done = 0;
    while (done < size && refill()) {
        const SharedBytes& piece = waiting_.front();
        const std::size_t count = std::min(size - done, piece.size - taken_);
        std::memcpy(to + done, piece.data + taken_, count);
        done += count;
        taken_ += count;
        if (taken_ < piece.size) continue;
        waiting_.pop_front();
        taken_ = 0;
    }
    if (done > 0) return {StreamRead::State::bytes, done};
    return {end_ ? StreamRead::State::end : StreamRead::State::nothing_now, 0};
}

}  // namespace plendix
