// Thumbnails for those who look at a wall of cameras: of the tiles they see, within a share of a processor.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "serve/live_hub.h"

namespace plendix {

/// One picture on its way to walls; they share it.
struct WallPicture {
    Frame frame;  // of which it was made, without its data
    Bytes jpeg;
    int width = 0, height = 0;
};
using WallPicturePointer = std::shared_ptr<const WallPicture>;

/// One viewer's wall. At most one picture of each camera waits for him: newer ones take its place.
class Wall {
public:
    using Clock = std::chrono::steady_clock;

    struct View {
        std::set<int> visible;
        int width = 320;  // pixels
        double rate = 5;  // pictures a second of each camera
    };

    /// Any thread.
    void look_at(View view);
    View view() const;
    /// Called by the thread that brings something where nothing was.
    void on_arrival(std::function<void()> wake);
    void offer(const WallPicturePointer& picture);
    /// Whether it is of use to offer this picture: it was not, and whoever looks takes what is offered.
    bool wants(const Frame& frame, Clock::time_point now) const;
    /// Null when nothing is there.
    WallPicturePointer take();

private:
    mutable std::mutex mutex_;
    // Guarded by mutex_:
    View view_;
    std::map<int, std::int64_t> offered_;  // arrival of the last one, by camera
    std::function<void()> wake_;
    std::map<int, WallPicturePointer> waiting_;
    std::deque<int> order_;      // of what waits
    Clock::time_point waits_{};  // since when: the first of it
};

/// One thread of its own, which sleeps while nobody looks.
class Thumbnailer {
public:
    using Clock = std::chrono::steady_clock;

    /// `share` of one processor, 0.01 to 1 and more for several.
    Thumbnailer(const LiveHub& hub, double share);
    ~Thumbnailer();
    Thumbnailer(const Thumbnailer&) = delete;
    Thumbnailer& operator=(const Thumbnailer&) = delete;

    /// Thumbnails so far, and the time that they took.
    std::uint64_t made() const { return count_; }
    double seconds() const { return static_cast<double>(spent_us_) / 1e6; }
    /// Brings the wall pictures until it is gone.
    void serve(const std::shared_ptr<Wall>& wall);

private:
    using Key = std::pair<int, int>;  // camera, width
    struct Made {
        WallPicturePointer picture;
        Clock::time_point time{};
    };
    struct Want {
        Key key;
        FramePointer frame;
        Clock::time_point last{};
        std::vector<std::shared_ptr<Wall>> walls;
    };

    void run();
    std::vector<std::shared_ptr<Wall>> walls();
    FramePointer newest(int camera, std::map<int, FramePointer>& known) const;
    std::vector<Want> wants(const std::vector<std::shared_ptr<Wall>>& walls, Clock::time_point now);
    Clock::duration make(const Want& want);
    static Frame facts_of(const Frame& frame);
    void forget_all_but(const std::set<Key>& seen);

    const LiveHub& hub_;
    const double share_;
    std::map<Key, Made> made_;  // the thread's own
    std::atomic<std::uint64_t> count_{0}, spent_us_{0};

    std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_:
    std::vector<std::weak_ptr<Wall>> walls_;
    bool ended_ = false;

    std::thread thread_;  // last: it uses everything
};

}  // namespace plendix
