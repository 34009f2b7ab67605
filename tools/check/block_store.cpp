#include "check/block_store.h"

#include <algorithm>

namespace plendix::check {
namespace {

bool same(link::View a, link::View b) {
    return a.size == b.size && std::equal(a.data, a.data + a.size, b.data);
}

}  // namespace

BlockStore::Arrival BlockStore::add(std::size_t number, link::View content) {
    if (number < next_ || early_.count(number) > 0)
        return holds(number, content) ? Arrival::again : Arrival::again_different;
    link::Bytes bytes(content.data, content.data + content.size);
    if (number > next_ || ended_) {
        short_seen_ = short_seen_ || content.size < block_size_;
        early_.emplace(number, std::move(bytes));
        return Arrival::early;
    }
    append(bytes);
    for (auto due = early_.find(next_); !ended_ && due != early_.end(); due = early_.find(next_)) {
        append(due->second);
        early_.erase(due);
    }
    return Arrival::in_order;
}

void BlockStore::append(const link::Bytes& content) {
    ++next_;
    ended_ = content.size() < block_size_;
    link::Bytes& place = ended_ ? last_ : payload_;
    place.insert(place.end(), content.begin(), content.end());
}

bool BlockStore::holds(std::size_t number, link::View content) const {
    const auto early = early_.find(number);
    if (early != early_.end()) return same({early->second.data(), early->second.size()}, content);
    if (number == 0) return false;
    if (number > full()) return same({last_.data(), last_.size()}, content);
    return same({payload_.data() + (number - 1) * block_size_, block_size_}, content);
}

/// A number that lies behind the short block's, or that one block alone leaps to, is a wrong one.
BlockStore::Gap BlockStore::gap() const {
    std::size_t last = next_ - 1;
    for (const auto& [number, content] : early_)
        if (content.size() < block_size_) last = number;
    const bool leap = early_.size() == 1 && early_.begin()->first > next_ + 1;
    const bool beyond = !early_.empty() && early_.rbegin()->first > last;
    return leap || beyond ? Gap::misnumbered : Gap::missing;
}

}  // namespace plendix::check
