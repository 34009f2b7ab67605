// What happened, for those who follow it: the last events by number, and who is to be woken.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/event.h"

namespace plendix {

/// Bounded in number; a follower who comes too late learns that something is missing. Any thread.
class EventFeed {
public:
    struct Item {
        std::uint64_t id;
        std::string kind;
        std::string json;  // as a line of events.jsonl
    };
    struct Page {
        std::vector<Item> items;
        bool gap = false;  // some that came before these are gone
    };

    /// The numbers of this process begin there: with those of another life of it a follower has missed
    /// something, whatever number he knows.
    explicit EventFeed(std::uint64_t first_id);

    void add(const Event& event);
    /// Wakes the followers, for what is no event.
    void stir();

    /// At most so many of the events behind this one.
    Page after(std::uint64_t id, std::size_t most) const;
    std::uint64_t last_id() const;

    /// `wake` is called, by the thread that adds, until the token is gone.
    void follow(const std::weak_ptr<void>& token, std::function<void()> wake);
    bool followed() const;

private:
    struct Follower {
        std::weak_ptr<void> token;
        std::function<void()> wake;
    };

    void drop_the_gone();

    mutable std::mutex mutex_;
    // Guarded by mutex_:
    std::deque<Item> items_;
    std::size_t bytes_ = 0;
    std::uint64_t next_id_;
    std::vector<Follower> followers_;
};

/// The driver's log lines; those that differ from one before in their numbers only are that line again.
class LogBook {
public:
    void add(const Event& event);
    /// Lines that came or were repeated after this number, oldest first.
    nlohmann::ordered_json after(std::uint64_t id) const;

private:
    struct Line {
        std::uint64_t id;
        std::int64_t time_ms;
        int camera;
        std::string text;
        std::uint64_t repeated;
    };

    mutable std::mutex mutex_;
    // Guarded by mutex_:
    std::map<std::string, Line> lines_;  // by camera and text without its numbers
    std::uint64_t last_id_ = 0;
};

}  // namespace plendix
