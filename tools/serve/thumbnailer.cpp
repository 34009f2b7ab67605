#include "serve/thumbnailer.h"

#include <algorithm>
#include <utility>

#include "serve/thumbnail.h"

namespace plendix {
namespace {

using namespace std::chrono_literals;

constexpr auto look_period = 20ms;  // for new pictures
constexpr auto longest_nap = 2s;    // of a viewer for whom pictures are still made

Wall::View within_reason(Wall::View view) {
    view.width = std::clamp(view.width, 32, 4096);
    view.rate = std::clamp(view.rate, 0.1, 30.0);
    // Few widths: walls of nearly the same share their pictures.
    constexpr int step = 80;
    view.width = (view.width + step - 1) / step * step;
    return view;
}

}  // namespace

void Wall::look_at(View view) {
    const std::lock_guard<std::mutex> lock(mutex_);
    view_ = within_reason(std::move(view));
}

Wall::View Wall::view() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return view_;
}

void Wall::on_arrival(std::function<void()> wake) {
    const std::lock_guard<std::mutex> lock(mutex_);
    wake_ = std::move(wake);
}

void Wall::offer(const WallPicturePointer& picture) {
    std::function<void()> wake;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const int camera = picture->frame.camera;
        offered_[camera] = picture->frame.arrival_ms;
        if (picture->jpeg.empty()) return;
        if (waiting_.empty()) {
            wake = wake_;
            waits_ = Clock::now();
        }
        if (waiting_.count(camera) == 0) order_.push_back(camera);
        waiting_[camera] = picture;
    }
    if (wake) wake();
}

bool Wall::wants(const Frame& frame, Clock::time_point now) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!waiting_.empty() && now - waits_ > longest_nap) return false;
    const auto last = offered_.find(frame.camera);
    return last == offered_.end() || last->second != frame.arrival_ms;
}

WallPicturePointer Wall::take() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (order_.empty()) return nullptr;
    const auto found = waiting_.find(order_.front());
    order_.pop_front();
    WallPicturePointer picture = std::move(found->second);
    waiting_.erase(found);
    waits_ = Clock::now();
    return picture;
}

Thumbnailer::Thumbnailer(const LiveHub& hub, double share)
    : hub_(hub), share_(std::max(share, 0.01)), thread_([this] { run(); }) {}

Thumbnailer::~Thumbnailer() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ended_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

void Thumbnailer::serve(const std::shared_ptr<Wall>& wall) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        walls_.push_back(wall);
    }
    changed_.notify_one();
}

/// Those that are still there; waits for the first of them. None at the end.
std::vector<std::shared_ptr<Wall>> Thumbnailer::walls() {
    std::vector<std::shared_ptr<Wall>> here;
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return ended_ || !walls_.empty(); });
    if (ended_) return here;
    const auto gone = [](const std::weak_ptr<Wall>& wall) { return wall.expired(); };
    walls_.erase(std::remove_if(walls_.begin(), walls_.end(), gone), walls_.end());
    for (const auto& wall : walls_)
        if (auto there = wall.lock()) here.push_back(std::move(there));
    return here;
}

/// However many look at a camera: the hub, which the plug-in waits for, is asked once.
FramePointer Thumbnailer::newest(int camera, std::map<int, FramePointer>& known) const {
    const auto found = known.find(camera);
    return found != known.end() ? found->second : known[camera] = hub_.newest_key(camera);
}

/// What there is to make, that which was made longest ago first.
std::vector<Thumbnailer::Want> Thumbnailer::wants(const std::vector<std::shared_ptr<Wall>>& walls,
                                                  Clock::time_point now) {
    std::map<Key, Want> wanted;
    std::map<int, FramePointer> frames;
    std::set<Key> seen;
    for (const auto& wall : walls) {
        const Wall::View view = wall->view();
        const auto period =
            std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(1 / view.rate));
        for (const int camera : view.visible) {
            const Key key{camera, view.width};
            seen.insert(key);
            const FramePointer frame = newest(camera, frames);
            if (!frame || !wall->wants(*frame, now)) continue;
            const auto before = made_.find(key);
            const Made made = before == made_.end() ? Made() : before->second;
            const bool there = made.picture && made.picture->frame.arrival_ms == frame->arrival_ms;
            if (there) wall->offer(made.picture);
            if (there || now - made.time < period) continue;
            Want& want = wanted[key];
            want.key = key;
            want.frame = frame;
            want.last = made.time;
            want.walls.push_back(wall);
        }
    }
    forget_all_but(seen);
    std::vector<Want> order;
    order.reserve(wanted.size());
    for (auto& [key, want] : wanted)
        order.push_back(std::move(want));
    std::sort(order.begin(), order.end(),
              [](const Want& one, const Want& other) { return one.last < other.last; });
    return order;
}

/// Who makes a window larger leaves widths behind.
void Thumbnailer::forget_all_but(const std::set<Key>& seen) {
    for (auto made = made_.begin(); made != made_.end();)
        made = seen.count(made->first) > 0 ? std::next(made) : made_.erase(made);
}

/// Without its data, which is large.
Frame Thumbnailer::facts_of(const Frame& frame) {
    Frame facts;
    facts.camera = frame.camera;
    facts.codec = frame.codec;
    facts.key = frame.key;
    facts.motion = frame.motion;
    facts.recording = frame.recording;
    facts.zones = frame.zones;
    facts.time_ms = frame.time_ms;
    facts.arrival_ms = frame.arrival_ms;
    return facts;
}

/// A picture that cannot be decoded is not shown, and not tried again either.
Thumbnailer::Clock::duration Thumbnailer::make(const Want& want) {
    const auto begun = Clock::now();
    Thumbnail small = make_thumbnail(*want.frame, want.key.second);
    const auto picture = std::make_shared<const WallPicture>(
        WallPicture{facts_of(*want.frame), std::move(small.jpeg), small.width, small.height});
    made_[want.key] = {picture, begun};
    for (const auto& wall : want.walls)
        wall->offer(picture);
    const auto spent = Clock::now() - begun;
    ++count_;
    spent_us_ +=
        static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(spent).count());
    return spent;
}

void Thumbnailer::run() {
    for (;;) {
        const auto here = walls();
        const auto begun = Clock::now();
        Clock::duration spent{};
        for (const Want& want : wants(here, begun)) {
            spent += make(want);
            if (spent > look_period) break;  // others may be waiting longer by now
        }
        const auto pause = std::chrono::duration_cast<Clock::duration>(spent / share_) - spent;
        std::unique_lock<std::mutex> lock(mutex_);
        if (changed_.wait_for(lock, std::max<Clock::duration>(pause, look_period), [this] { return ended_; }))
            return;
    }
}

}  // namespace plendix
