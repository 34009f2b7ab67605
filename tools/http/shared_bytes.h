// Bytes that many readers share, and that nobody copies for it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace plendix {

/// They do not change while somebody holds them. Without an owner they live as long as the process.
struct SharedBytes {
    std::shared_ptr<const void> owner;
    const std::uint8_t* data = nullptr;
    std::size_t size = 0;
};

inline SharedBytes shared_bytes(std::string text) {
    auto owner = std::make_shared<const std::string>(std::move(text));
    const auto* data = reinterpret_cast<const std::uint8_t*>(owner->data());
    const std::size_t size = owner->size();
    return {std::move(owner), data, size};
}

inline SharedBytes shared_bytes(std::vector<std::uint8_t> bytes) {
    auto owner = std::make_shared<const std::vector<std::uint8_t>>(std::move(bytes));
    const auto* data = owner->data();
    const std::size_t size = owner->size();
    return {std::move(owner), data, size};
}

/// Bytes that are part of a larger thing, as those of a picture are of its frame.
inline SharedBytes shared_bytes(std::shared_ptr<const void> owner, const std::vector<std::uint8_t>& part) {
    return {std::move(owner), part.data(), part.size()};
}

}  // namespace plendix
