#include "http/sessions.h"

#include <sys/random.h>

#include <algorithm>
#include <cerrno>

#include "usage.h"

namespace plendix {
namespace {

constexpr std::size_t secret_bytes = 32;

}  // namespace

std::string random_hex(std::size_t bytes) {
    std::vector<unsigned char> random(bytes);
    if (getrandom(random.data(), bytes, 0) != static_cast<ssize_t>(bytes))
        throw Failure("cannot get random bytes: " + error_text(errno));
    const char* const digits = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : random) {
        text += digits[byte >> 4U];
        text += digits[byte & 15U];
    }
    return text;
}

bool equal_in_constant_time(const std::string& left, const std::string& right) {
    if (left.size() != right.size()) return false;
    unsigned difference = 0;
    for (std::size_t i = 0; i < left.size(); ++i)
        difference |=
            static_cast<unsigned char>(left[i]) ^ static_cast<unsigned>(static_cast<unsigned char>(right[i]));
    return difference == 0;
}

std::string Sessions::begin(const std::string& user, Clock::time_point now) {
    std::string secret = random_hex(secret_bytes);
    const std::lock_guard<std::mutex> lock(mutex_);
    if (sessions_.size() == most)
        sessions_.erase(std::min_element(sessions_.begin(), sessions_.end(),
                                         [](const auto& a, const auto& b) { return a.used < b.used; }));
    sessions_.push_back({secret, user, now, now});
    return secret;
}

std::string Sessions::user(const std::string& secret, Clock::time_point now) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto over = [now](const Session& session) {
        return now - session.used > unused_life || now - session.begun > whole_life;
    };
    sessions_.erase(std::remove_if(sessions_.begin(), sessions_.end(), over), sessions_.end());
    for (Session& session : sessions_) {
        if (!equal_in_constant_time(session.secret, secret)) continue;
        session.used = now;
        return session.user;
    }
    return {};
}

void Sessions::end(const std::string& secret) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto ended = [&secret](const Session& session) {
        return equal_in_constant_time(session.secret, secret);
    };
    sessions_.erase(std::remove_if(sessions_.begin(), sessions_.end(), ended), sessions_.end());
}

}  // namespace plendix
