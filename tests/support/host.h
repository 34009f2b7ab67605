// A host for the tests: a plug-in object of its own, whose events are kept as they come.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include "plugin/Plendix.h"
#include "plugin/plugin.h"

namespace plendix {

/// One event as the callback got it.
struct RecordedEvent {
    _EventParmsIn record;  // Data is dead by now
    std::string data;      // a copy: DataLength bytes of a frame, a document up to its NUL
};

/// One at a time: installs a fresh CPlugin as g_Plugin, and takes it away again, cameras included.
/// All but plugin() may be called from any thread.
class RecordingHost {
public:
    RecordingHost() {
        current_ = this;
        _LoadParmsIn in = {0, 0, 0, [](auto* event, auto* out) { return current_->record(*event, *out); }};
        _LoadParmsOut out = {};
        plugin_->Load(&in, &out);
        g_Plugin = plugin_.get();
    }
    ~RecordingHost() {
        plugin_.reset();  // its worker may still send events
        g_Plugin = nullptr;
    }
    CPlugin& plugin() { return *plugin_; }
    void serve() { plugin_->processmsgs(); }  // what was posted, on this thread

    /// What the callback answers from now on; 0 and 0 accept.
    void answer(int result, std::uint32_t error) {
        const std::lock_guard<std::mutex> lock(mutex_);
        std::tie(result_, error_) = std::tie(result, error);
    }
    void clear() {
        const std::lock_guard<std::mutex> lock(mutex_);
        events_.clear();
    }
    std::vector<RecordedEvent> events(std::uint32_t kinds = ~0U) const {
        const std::lock_guard<std::mutex> lock(mutex_);
        std::vector<RecordedEvent> chosen;
        for (const RecordedEvent& event : events_)
            if ((event.record.Kind & kinds) != 0) chosen.push_back(event);
        return chosen;
    }
    std::vector<RecordedEvent> frames() const { return events(EventKindVideo); }
    /// The texts of the documents of the given kinds, in order.
    std::vector<std::string> documents(std::uint32_t kinds = ~EventKindVideo) const {
        std::vector<std::string> texts;
        for (const RecordedEvent& event : events(kinds & ~EventKindVideo))
            texts.push_back(event.data);
        return texts;
    }
    /// The log lines as "level text", with the XML entities of the text still escaped.
    std::vector<std::string> log_lines() const {
        static const std::regex form("<\\?xml \\?><log_msg level=\"(\\d+)\">([^]*)</log_msg>");
        std::vector<std::string> lines;
        for (const std::string& text : documents(EventKindLog))
            lines.push_back(std::regex_replace(text, form, "$1 $2"));
        return lines;
    }
    /// Waits until predicate(host) holds, which may call all of the above; false: not in time.
    template <typename Predicate>
    bool wait_for(Predicate predicate, std::chrono::milliseconds limit = std::chrono::seconds(5)) {
        const auto end = std::chrono::steady_clock::now() + limit;
        while (!predicate(*this)) {
            if (std::chrono::steady_clock::now() >= end) return false;
            std::unique_lock<std::mutex> lock(mutex_);
            arrived_.wait_for(lock, std::chrono::milliseconds(20));
        }
        return true;
    }

private:
    struct Plugin : CPlugin {
        using CPlugin::processmsgs;
    };
    int record(const _EventParmsIn& in, _EventParmsOut& out) {
        const auto* data = static_cast<const char*>(in.Data);
        EXPECT_TRUE(in.Size == sizeof(in) && in.Version == 1);
        EXPECT_TRUE(out.Size == sizeof(out) && out.Version == 1 && out.Error == 0);
        const std::lock_guard<std::mutex> lock(mutex_);
        events_.push_back({in, in.Kind == EventKindVideo ? std::string(data, in.DataLength) : data});
        arrived_.notify_all();
        out.Error = error_;
        return result_;
    }

    static inline RecordingHost* current_ = nullptr;
    mutable std::mutex mutex_;
    std::condition_variable arrived_;
    std::vector<RecordedEvent> events_;
    int result_ = 0;
    std::uint32_t error_ = 0;
    std::unique_ptr<Plugin> plugin_ = std::make_unique<Plugin>();
};

}  // namespace plendix
