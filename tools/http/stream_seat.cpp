#include "http/stream_seat.h"

#include <microhttpd.h>

#include <exception>
#include <utility>

namespace plendix {

StreamSeat::StreamSeat(std::shared_ptr<Stream> stream, MHD_Connection* connection, Bell& bell,
                       std::atomic<std::uint64_t>& bytes, Log log)
    : stream_(std::move(stream)), connection_(connection), bell_(bell), bytes_(bytes), log_(std::move(log)) {}

StreamSeat::~StreamSeat() {
    {
        const std::lock_guard<std::mutex> lock(stream_->mutex_);
        stream_->resume_ = nullptr;
    }
    stream_->over();
}

/// Not when somebody woke the stream since it was asked.
bool StreamSeat::fall_asleep() {
    const std::lock_guard<std::mutex> lock(stream_->mutex_);
    if (stream_->woken_) return false;
    MHD_suspend_connection(connection_);
    stream_->resume_ = [this] {
        MHD_resume_connection(connection_);
        bell_.ring();
    };
    return true;
}

ssize_t StreamSeat::read(std::uint8_t* to, std::size_t size) try {
    while (!cut_) {
        {
            const std::lock_guard<std::mutex> lock(stream_->mutex_);
            stream_->woken_ = false;
        }
        const StreamRead got = stream_->read(to, size);
        bytes_ += got.size;
        if (got.state == StreamRead::State::bytes) return static_cast<ssize_t>(got.size);
        if (got.state == StreamRead::State::end) return MHD_CONTENT_READER_END_OF_STREAM;
        if (fall_asleep()) return 0;
    }
    return MHD_CONTENT_READER_END_WITH_ERROR;
} catch (const std::exception& error) {
    if (log_) log_(error.what());
    return MHD_CONTENT_READER_END_WITH_ERROR;
}

bool StreamSeat::asleep() const {
    const std::lock_guard<std::mutex> lock(stream_->mutex_);
    return static_cast<bool>(stream_->resume_);
}

void StreamSeat::cut() {
    cut_ = true;
    stream_->wake();
}

}  // namespace plendix
