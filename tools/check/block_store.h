// The blocks of one transfer, in whatever order they come.
#pragma once

#include <map>

#include "link/packet.h"

namespace plendix::check {

class BlockStore {
public:
    enum class Arrival { in_order, early, again, again_different };
    enum class Gap { missing, misnumbered };

    explicit BlockStore(std::size_t block_size = 0) : block_size_(block_size) {}

    /// Requires at most a block's size of content.
    Arrival add(std::size_t number, link::View content);

    std::size_t block_size() const { return block_size_; }
    std::size_t next() const { return next_; }  // the number that is due
    bool gaps() const { return !early_.empty(); }
    bool ended() const { return ended_; }  // a short block is in, and all in front of it
    bool short_seen() const { return ended_ || short_seen_; }
    std::size_t full() const { return payload_.size() / (block_size_ == 0 ? 1 : block_size_); }
    std::size_t count() const { return full() + early_.size(); }

    /// What is wrong where blocks came whose turn it was not, and nothing more comes.
    Gap gap() const;

    link::Bytes take_payload() { return std::move(payload_); }  // of the full blocks in order
    const link::Bytes& last() const { return last_; }           // the short block

private:
    bool holds(std::size_t number, link::View content) const;
    void append(const link::Bytes& content);

    std::size_t block_size_, next_ = 1;
    link::Bytes payload_, last_;
    std::map<std::size_t, link::Bytes> early_;
    bool ended_ = false, short_seen_ = false;
};

}  // namespace plendix::check
