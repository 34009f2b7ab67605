// Where live pictures are: the newest of each camera, and a way to follow those that come.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "host/output.h"
#include "serve/viewer.h"

namespace plendix {

/// An output of the session. The plug-in's thread only leaves a picture here, and wakes the hub's thread
/// when somebody watches its camera; that thread deals it out, however many viewers there are. Everything
/// but `push` and `finish` may be called from any thread.
class LiveHub : public Output {
public:
    LiveHub();
    ~LiveHub() override;
    LiveHub(const LiveHub&) = delete;
    LiveHub& operator=(const LiveHub&) = delete;

    void push(const FramePointer& frame) override;
    void push(const Event& /*event*/) override {}
    void finish() override;

    /// The last picture of a camera (1 to 255), and the last that a decoder can begin with; null before
    /// there was one.
    FramePointer newest(int camera) const;
    FramePointer newest_key(int camera) const;

    /// The last picture that can be decoded, where it may be shown as live: neither it nor the one that came
    /// last is older than two of its intervals, and 2 s; 5 s for what came last, however slow the camera is.
    struct Sight {
        FramePointer picture;                // null: there is none
        std::optional<std::int64_t> age_ms;  // of the last picture that can be decoded, shown or not
    };
    Sight sight(int camera, std::int64_t now_ms) const;

    /// Offers the viewer what comes of this camera from now on, beginning with a key frame, until he is
    /// gone: the hub does not keep him.
    void follow(int camera, const std::shared_ptr<Viewer>& viewer);
    std::size_t viewers(int camera) const;
    /// Pictures that went to viewers, each counted for each, and those that were lost to one.
    std::uint64_t given() const { return given_; }
    std::uint64_t lost() const { return lost_; }

private:
    struct Place {
        FramePointer newest, newest_key;
        std::int64_t interval_ms = 0, key_interval_ms = 0;  // between the last two of each
        bool gap = false;                                   // the next one to be dealt out is a key frame
        std::vector<std::weak_ptr<Viewer>> viewers;
    };

    static FramePointer replace(FramePointer& place, std::int64_t& interval_ms, const FramePointer& frame);
    void run();
    void deal_out(const FramePointer& frame);
    Place& place(int camera) { return places_.at(static_cast<std::size_t>(camera)); }
    const Place& place(int camera) const { return places_.at(static_cast<std::size_t>(camera)); }

    std::atomic<std::uint64_t> given_{0}, lost_{0};
    mutable std::mutex mutex_;
    std::condition_variable filled_;
    // Guarded by mutex_:
    std::array<Place, 256> places_;
    std::deque<FramePointer> waiting_;
    std::size_t waiting_bytes_ = 0;
    bool finished_ = false;

    std::thread thread_;  // last: it uses everything
};

}  // namespace plendix
