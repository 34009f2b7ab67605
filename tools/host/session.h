// The host's side of the plug-in: cameras as they are wanted and as they are, and everything that
// is delivered handed on to the outputs.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/camera_settings.h"
#include "host/camera_watch.h"
#include "host/clock_watch.h"
#include "host/configuration_reader.h"
#include "host/document_reader.h"
#include "host/frame_pool.h"
#include "host/output.h"
#include "host/plugin_library.h"

namespace plendix {

/// One thread owns it and calls `serve` all the time; outputs work on threads of their own. On the
/// plug-in's thread a frame is copied once and put into the queue of each output, a document is
/// copied and left for `serve`.
class Session {
public:
    using Clock = std::chrono::steady_clock;

    /// Loads the plug-in; an empty path is default_plugin(). Throws Failure.
    Session(const std::filesystem::path& plugin, std::vector<CameraSettings> cameras);
    /// Stops.
    ~Session();

    /// Frames and events go there, too. Before `start`; the output outlives the session.
    void attach(Output& output);
    /// From now on what the driver says of its cameras is kept, which costs a reading of each such document.
    void keep_reports() { keep_reports_ = true; }

    /// Opens the plug-in, which keeps its settings in the current directory, with these cameras
    /// and no others. Throws Failure.
    void start();

    /// Waits up to `patience` for documents, reads those that are there, and hands their events to
    /// the outputs. Returns the events.
    std::vector<Event> serve(std::chrono::milliseconds patience);

    /// No frame comes after this. Hands out the last events and finishes the outputs' queues;
    /// returns the events. May be repeated.
    std::vector<Event> stop();

    /// Goes on with these cameras: those that are the same as before are not touched. Throws Failure, and
    /// then goes on with those before.
    void change(const std::vector<CameraSettings>& cameras);
    /// Hands over a write document (relays, recording marks). Throws Failure when it is refused.
    void write(const std::string& document);

    std::vector<CameraState> states() const { return watch_.states(); }
    /// By number, what the driver said last of each wanted camera; of a new one nothing. Kept as told by
    /// `keep_reports`; the session's thread only.
    const std::map<int, ReportedCamera>& reports() const { return reports_; }

    /// Asks the driver for a sign of life where it has not given one for a while: with no camera
    /// on the network it has nothing to say.
    void ask_for_life();
    /// When the driver's worker last called.
    Clock::time_point last_call() const;

    /// Documents that found no room so far.
    std::uint64_t lost_documents() const { return lost_documents_; }

private:
    struct Document {
        std::string text;
        std::int64_t time_ms;  // of arrival
    };

    bool take(const _EventParmsIn& event);
    bool take_frame(const _EventParmsIn& event);
    bool take_document(const _EventParmsIn& event);
    void restore_picture(int camera);
    void add(Event event);
    void look_at_clocks();
    std::deque<Document> documents(std::chrono::milliseconds patience);
    void read(const Document& document, std::vector<Event>& events);
    void keep_report(const std::string& document);
    bool is_wanted(int camera) const;
    void wish(const std::vector<CameraSettings>& cameras);
    bool passing(const Event& event) const;
    void query();

    std::vector<CameraSettings> cameras_;
    std::vector<Output*> outputs_;
    bool keep_reports_ = false;
    std::map<int, ReportedCamera> reports_;
    DocumentReader reader_;
    CameraWatch watch_;
    std::shared_ptr<FramePool> pool_ = std::make_shared<FramePool>();
    std::atomic<Clock::rep> last_call_{0};
    std::atomic<std::uint64_t> lost_documents_{0};
    Clock::time_point last_query_{};

    std::mutex mutex_;
    std::condition_variable arrived_;
    // Guarded by mutex_:
    std::deque<Document> documents_;
    std::size_t document_bytes_ = 0;
    std::vector<Event> own_events_;  // what frames and clocks tell
    ClockWatch clock_;
    std::map<int, std::string> pictures_;  // picture documents by camera

    PluginLibrary plugin_;  // last: nothing calls into a session that is half built or half gone
};

}  // namespace plendix
