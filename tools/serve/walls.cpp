#include "serve/walls.h"

#include <random>

namespace plendix {
namespace {

std::string random_name() {
    static const char digits[] = "0123456789abcdef";
    std::random_device source;
    std::string name;
    for (int i = 0; i < 32; ++i)
        name += digits[source() % 16];
    return name;
}

}  // namespace

std::pair<std::string, std::shared_ptr<Wall>> Walls::open() {
    auto wall = std::make_shared<Wall>();
    std::string name = random_name();
    const std::lock_guard<std::mutex> lock(mutex_);
    for (auto at = walls_.begin(); at != walls_.end();)
        at = at->second.expired() ? walls_.erase(at) : std::next(at);
    walls_[name] = wall;
    return {std::move(name), std::move(wall)};
}

std::shared_ptr<Wall> Walls::find(const std::string& name) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = walls_.find(name);
    return found == walls_.end() ? nullptr : found->second.lock();
}

}  // namespace plendix
