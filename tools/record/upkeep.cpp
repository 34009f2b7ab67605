#include "record/upkeep.h"

#include <algorithm>

#include "host/clocks.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr std::chrono::minutes time_of_doubt{10};  // in which a wrong clock is usually set right

std::int64_t monotonic_ms() {
    return milliseconds_of(Upkeep::Clock::now());
}

}  // namespace

Upkeep::Upkeep(RecordFolder& folder, const RetentionLimits& limits, const std::optional<ClockReading>& began)
    : folder_(folder), limits_(limits), folder_generation_(folder.generation()) {
    if (began) clock_.look(began->wall_ms, began->monotonic_ms);
    retention_.emplace(folder_.root(), limits_, began);
    // Nobody knows for how long the machine was off.
    if (const std::int64_t newest_ms = retention_->newest_ms(); newest_ms > 0) doubt(utc_ms() - newest_ms);
}

/// Nothing is removed for an age that it has only by a clock that was set forward, or that shows a
/// later time than expected, until that clock has stood for a while.
void Upkeep::doubt(std::int64_t ms) {
    const auto now = Clock::now();
    doubt_ms_ = std::max<std::int64_t>((now < doubted_until_ ? doubt_ms_ : 0) + ms, 0);
    doubted_until_ = now + time_of_doubt;
}

void Upkeep::closed(const std::filesystem::path& stem) {
    retention_->added(stem, monotonic_ms());
}

std::optional<std::int64_t> Upkeep::follow_clock() {
    const auto now = read_clocks();
    if (!now) return std::nullopt;
    const auto jump_ms = clock_.look(now->wall_ms, now->monotonic_ms);
    if (!jump_ms) return std::nullopt;
    retention_->follow_clock(now->wall_ms, now->monotonic_ms);
    doubt(*jump_ms);
    return jump_ms;
}

/// Another folder has the place of the one that was read.
void Upkeep::follow_folder() {
    if (folder_generation_ == folder_.generation()) return;
    folder_generation_ = folder_.generation();
    retention_.emplace(folder_.root(), limits_, read_clocks());
}

Removed Upkeep::sweep(const Retention::Stems& open) {
    try {
        follow_folder();
    } catch (const Failure& failure) {
        return {0, 0, failure.what(), false};
    }
    return retention_->sweep(utc_ms() - (Clock::now() < doubted_until_ ? doubt_ms_ : 0), open);
}

Removed Upkeep::make_room(bool refused, const Retention::Stems& open) {
    if (!limits_.any()) return {};
    const std::uint64_t reserve = folder_.reserve_bytes();
    if (!refused && folder_.free_bytes().value_or(reserve) >= reserve) return {};
    return retention_->free_space(reserve, open);
}

std::optional<std::uint64_t> Upkeep::room() const {
    if (!limits_.any()) return std::nullopt;
    const std::uint64_t free = folder_.free_bytes().value_or(0);
    const std::uint64_t above_reserve = free - std::min(free, folder_.reserve_bytes());
    if (limits_.keep_bytes == 0 || limits_.per_camera) return above_reserve;
    return std::min(above_reserve, limits_.keep_bytes - std::min(retention_->bytes(), limits_.keep_bytes));
}

}  // namespace plendix
