#include "host/session.h"

#include <algorithm>
#include <utility>

#include "host/clocks.h"
#include "host/document_builder.h"
#include "plugin/host_records.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr std::size_t most_document_bytes = 64U << 20U;  // some 200 configurations of 255 cameras
constexpr std::chrono::seconds query_period{2};

}  // namespace

Session::Session(const std::filesystem::path& plugin, std::vector<CameraSettings> cameras)
    : cameras_(std::move(cameras)),
      plugin_(plugin.empty() ? default_plugin() : plugin,
              [this](const _EventParmsIn& event) { return take(event); }) {
    wish(cameras_);
}

void Session::wish(const std::vector<CameraSettings>& cameras) {
    watch_.watch(cameras, Clock::now());
    const std::lock_guard<std::mutex> lock(mutex_);
    pictures_.clear();
    for (const CameraSettings& camera : cameras)
        if (const std::string document = picture_document(camera); !document.empty())
            pictures_[camera.number] = document;
}

Session::~Session() {
    plugin_.close();
}

void Session::attach(Output& output) {
    outputs_.push_back(&output);
}

void Session::start() {
    // The settings file may hold cameras of an earlier session: they are removed before the
    // plug-in first serves them, for documents handed over now are served first.
    plugin_.configure(remove_all_document());
    plugin_.configure(configure_document(cameras_));
    plugin_.open();
}

// --- On the plug-in's thread ---

bool Session::take(const _EventParmsIn& event) {
    last_call_ = Clock::now().time_since_epoch().count();
    return event.Kind == EventKindVideo ? take_frame(event) : take_document(event);
}

bool Session::take_frame(const _EventParmsIn& event) {
    const auto frame = pool_->copy(event);
    if (!frame) return false;
    const auto now = Clock::now();
    frame->arrival_ms = milliseconds_of(now);
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        look_at_clocks();
        frame->clock_epoch = clock_.epoch();
    }
    if (watch_.frame(*frame, now)) {
        Event mark{frame->time_ms, frame->camera, EventKind::recording};
        mark.values["active"] = frame->recording;
        const std::lock_guard<std::mutex> lock(mutex_);
        add(std::move(mark));
    }
    for (Output* output : outputs_)
        output->push(frame);
    return true;
}

bool Session::take_document(const _EventParmsIn& event) {
    const auto* text = static_cast<const char*>(event.Data);
    Document document{std::string(text, text + event.DataLength), utc_ms()};
    if (event.Kind == EventKindAlarm) restore_picture(connected_camera(document.text));
    const std::lock_guard<std::mutex> lock(mutex_);
    if (document_bytes_ + document.text.size() > most_document_bytes) {
        ++lost_documents_;
        return false;
    }
    document_bytes_ += document.text.size();
    documents_.push_back(std::move(document));
    arrived_.notify_one();
    return true;
}

/// Within the event that tells of the connection: later it would cost the picture under way.
void Session::restore_picture(int camera) {
    std::string document;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto wanted = pictures_.find(camera);
        if (wanted == pictures_.end()) return;
        document = wanted->second;
    }
    plugin_.configure(document);
}

/// Requires mutex_.
void Session::add(Event event) {
    own_events_.push_back(std::move(event));
}

/// Requires mutex_: of two threads that look, none comes with an older reading than the other.
void Session::look_at_clocks() {
    const auto clocks = read_clocks();
    if (!clocks) return;
    const auto jump_ms = clock_.look(clocks->wall_ms, clocks->monotonic_ms);
    if (jump_ms) add(clock_event(clocks->wall_ms, *jump_ms));
}

// --- On the host's thread ---

std::deque<Session::Document> Session::documents(std::chrono::milliseconds patience) {
    std::unique_lock<std::mutex> lock(mutex_);
    arrived_.wait_for(lock, patience, [this] { return !documents_.empty(); });
    document_bytes_ = 0;
    return std::exchange(documents_, {});
}

std::vector<Event> Session::serve(std::chrono::milliseconds patience) {
    std::vector<Event> events;
    for (const Document& document : documents(patience))
        read(document, events);
    const auto now = Clock::now();
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        look_at_clocks();
        events.insert(events.end(), own_events_.begin(), own_events_.end());
        own_events_.clear();
    }
    for (Event& event : watch_.settle(now, utc_ms()))
        events.push_back(std::move(event));
    for (Output* output : outputs_)
        for (const Event& event : events)
            output->push(event);
    return events;
}

void Session::read(const Document& document, std::vector<Event>& events) {
    if (keep_reports_) keep_report(document.text);
    for (Event& event : reader_.read(document.text, document.time_ms)) {
        if (passing(event)) continue;
        if (watch_.event(event, Clock::now())) query();
        events.push_back(std::move(event));
    }
}

/// One camera's configuration, or that of all.
void Session::keep_report(const std::string& document) {
    const auto cameras = read_configuration(document);
    if (!cameras) return;
    for (const ReportedCamera& camera : *cameras)
        if (is_wanted(camera.settings.number)) reports_[camera.settings.number] = camera;
}

bool Session::is_wanted(int camera) const {
    return std::any_of(cameras_.begin(), cameras_.end(),
                       [camera](const CameraSettings& wanted) { return wanted.number == camera; });
}

/// A camera that is wanted is removed only to be added again.
bool Session::passing(const Event& event) const {
    return event.kind == EventKind::config && event.values.contains("removed") && is_wanted(event.camera);
}

std::vector<Event> Session::stop() {
    plugin_.close();
    std::vector<Event> events = serve(std::chrono::milliseconds(0));
    for (Output* output : outputs_)
        output->finish();
    return events;
}

void Session::change(const std::vector<CameraSettings>& cameras) {
    const std::string document = change_document(cameras_, cameras);
    wish(cameras);  // before the driver tells of them
    try {
        if (!document.empty()) plugin_.configure(document);
    } catch (const Failure&) {
        wish(cameras_);
        throw;
    }
    cameras_ = cameras;
    for (auto report = reports_.begin(); report != reports_.end();)
        report = is_wanted(report->first) ? std::next(report) : reports_.erase(report);
}

void Session::write(const std::string& document) {
    plugin_.write(document);
}

void Session::query() {
    last_query_ = Clock::now();
    if (!cameras_.empty()) plugin_.configure(query_document(cameras_.front().number));
}

void Session::ask_for_life() {
    const auto now = Clock::now();
    if (now - last_call() > query_period && now - last_query_ > query_period) query();
}

Session::Clock::time_point Session::last_call() const {
    return Clock::time_point(Clock::duration(last_call_));
}

}  // namespace plendix
