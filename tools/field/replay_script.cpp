#include "field/replay_script.h"

#include <algorithm>
#include <utility>

namespace plendix {
namespace {

using Kind = ReplayChoice::Kind;

/// Of a register the same for all that mean the same.
std::string key_of(const link::FileName& name, const std::string& request) {
    if (name.kind == link::Kind::register_read) return link::register_name(name.number);
    if (name.kind == link::Kind::register_write)
        return link::register_name(name.number) + '=' + std::to_string(name.value);
    return request;
}

/// Numbers beyond those of a protocol of 16 bits are nobody's.
bool is_register(const link::FileName& name) {
    return (name.kind == link::Kind::register_read || name.kind == link::Kind::register_write) &&
           name.number <= 65535;
}

}  // namespace

ReplayScript::ReplayScript(std::vector<ReplayTransferPointer> transfers, bool loop)
    : transfers_(std::move(transfers)), loop_(loop), registers_(transfers_) {
    for (std::size_t place = 0; place < transfers_.size(); ++place) {
        const ReplayTransfer& transfer = *transfers_[place];
        if (transfer.name.picture()) {
            pictures_.push_back(place);
            continue;
        }
        named_[key_of(transfer.name, transfer.request)].places.push_back(place);
        if (is_register(transfer.name) && !transfer.taken) failures_.push_back(place);
    }
}

ReplayChoice ReplayScript::choose(const std::string& request, bool options, bool anew) {
    const link::FileName name = link::parse_file_name(request);
    const std::string key = key_of(name, request);
    if (name.picture()) return choose_picture(name, anew);
    return is_register(name) ? choose_register(name, key, options) : choose_other(key);
}

ReplayChoice ReplayScript::choose_picture(const link::FileName& name, bool anew) {
    const bool fresh_stream = anew || name.ssn != ssn_;
    ssn_ = name.ssn;
    if (next_picture_ == pictures_.size() && !begin_again()) return {};
    std::size_t skipped = 0;
    // A stream that begins afresh where that of the capture went on.
    if (name.key && fresh_stream && !transfers_[place_of_next_picture()]->name.key) {
        const std::size_t from = next_picture_;
        next_picture_ = key_frame_from(from);
        skipped = next_picture_ - from;
        while (skipped > 0 && failure() < place_of_next_picture())
            ++next_failure_;
    }
    if (failure() < place_of_next_picture()) return play_failure(Kind::failure);
    const std::size_t place = pictures_[next_picture_++];
    if (!transfers_[place]->taken) section_ = place + 1;
    return {Kind::picture, transfers_[place], skipped};
}

/// The picture itself where none that follows is a key frame.
std::size_t ReplayScript::key_frame_from(std::size_t picture) const {
    for (std::size_t i = picture; i < pictures_.size(); ++i)
        if (transfers_[pictures_[i]]->key) return i;
    return picture;
}

bool ReplayScript::begin_again() {
    if (!loop_ || pictures_.empty()) return false;
    ++rounds_;
    next_picture_ = key_frame_from(0);
    section_ = place_of_next_picture();
    next_failure_ = static_cast<std::size_t>(std::lower_bound(failures_.begin(), failures_.end(), section_) -
                                             failures_.begin());
    for (auto& [key, named] : named_)
        named.next = 0;
    return true;
}

ReplayChoice ReplayScript::choose_register(const link::FileName& name, const std::string& key, bool options) {
    const auto found = named_.find(key);
    if (found == named_.end()) return {Kind::made_up, made_answer(registers_.answer(name), options), 0};
    Named& named = found->second;
    enter_section(named);
    const std::size_t place = named.next < named.places.size() ? named.places[named.next] : nowhere;
    if (place == failure() && place != nowhere && place < place_of_next_picture())
        return play_failure(Kind::registers);
    if (place < failure()) return play(Kind::registers, named);
    if (named.last) {
        registers_.note(*named.last);
        return {Kind::repeated, named.last, 0};
    }
    if (place != nowhere && transfers_[place]->taken) return {Kind::repeated, transfers_[place], 0};
    return {Kind::made_up, made_answer(registers_.answer(name), options), 0};
}

/// What was not asked for in the section before is left out; the last of it is what was known then.
void ReplayScript::enter_section(Named& named) const {
    for (; named.next < named.places.size() && named.places[named.next] < section_; ++named.next) {
        const auto& passed = transfers_[named.places[named.next]];
        if (passed->taken) named.last = passed;
    }
}

ReplayChoice ReplayScript::play(Kind kind, Named& named) {
    const auto& transfer = transfers_[named.places[named.next++]];
    named.last = transfer;
    registers_.note(*transfer);
    return {kind, transfer, 0};
}

ReplayChoice ReplayScript::play_failure(Kind kind) {
    const std::size_t place = failures_[next_failure_++];
    section_ = place + 1;
    return {kind, transfers_[place], 0};
}

ReplayChoice ReplayScript::choose_other(const std::string& key) {
    const auto found = named_.find(key);
    if (found == named_.end()) return {Kind::unknown, made_refusal("not in the capture"), 0};
    Named& named = found->second;
    if (named.next < named.places.size()) return play(Kind::registers, named);
    return {Kind::repeated, named.last, 0};
}

std::size_t ReplayScript::failure() const {
    return next_failure_ < failures_.size() ? failures_[next_failure_] : nowhere;
}

std::size_t ReplayScript::place_of_next_picture() const {
    return next_picture_ < pictures_.size() ? pictures_[next_picture_] : transfers_.size();
}

}  // namespace plendix
