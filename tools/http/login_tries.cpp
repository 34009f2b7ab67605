#include "http/login_tries.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>

namespace plendix {
namespace {

constexpr std::chrono::minutes forgotten_after{15};

/// Whoever has a version 6 address has 2^64 of them.
std::string network_of(const std::string& address) {
    in6_addr six{};
    if (inet_pton(AF_INET6, address.c_str(), &six) != 1) return address;
    return {reinterpret_cast<const char*>(six.s6_addr), 8};
}

std::chrono::seconds pause_after(int failures) {
    const int doublings = std::clamp(failures - LoginTries::free_tries, 0, 10);
    return std::min(std::chrono::seconds(1LL << doublings), LoginTries::longest_pause);
}

}  // namespace

/// Requires mutex_. The one that has tried least lately goes: who is let off so starts anew.
void LoginTries::make_room(Clock::time_point now) {
    for (auto record = records_.begin(); record != records_.end();)
        record = now - record->second.last > forgotten_after ? records_.erase(record) : std::next(record);
    if (records_.size() < most) return;
    records_.erase(std::min_element(records_.begin(), records_.end(), [](const auto& a, const auto& b) {
        return a.second.last < b.second.last;
    }));
}

std::chrono::seconds LoginTries::begin(const std::string& address, Clock::time_point now) {
    const std::string network = network_of(address);
    const std::lock_guard<std::mutex> lock(mutex_);
    if (records_.count(network) == 0) make_room(now);
    Record& record = records_[network];
    if (record.failures > 0 && now - record.last > forgotten_after) record = {};
    if (now < record.again) return std::chrono::ceil<std::chrono::seconds>(record.again - now);
    ++record.failures;
    record.last = now;
    if (record.failures >= free_tries) record.again = now + pause_after(record.failures);
    return std::chrono::seconds(0);
}

void LoginTries::succeeded(const std::string& address) {
    const std::lock_guard<std::mutex> lock(mutex_);
    records_.erase(network_of(address));
}

}  // namespace plendix
