// One camera through the driver, without a trace on the disk.
#pragma once

#include <chrono>
#include <filesystem>
#include <vector>

#include "host/camera_settings.h"
#include "host/output_queue.h"
#include "host/process_state.h"
#include "host/scratch_folder.h"
#include "host/session.h"

namespace plendix {

/// Changes the current directory and standard output while it lives: the plug-in keeps its settings in
/// the one and prints its log to the other. One thread owns it; another may take frames from the queue.
class LiveCamera {
public:
    /// Loads the plug-in; an empty path is default_plugin(). Throws Failure.
    LiveCamera(const std::filesystem::path& plugin, const CameraSettings& camera);
    ~LiveCamera();
    LiveCamera(const LiveCamera&) = delete;
    LiveCamera& operator=(const LiveCamera&) = delete;

    void start() { session_.start(); }
    /// What happened, after `patience` where nothing did. To be called all the time.
    std::vector<Event> serve(std::chrono::milliseconds patience);
    /// No frame comes after this; the queue is finished. May be repeated.
    std::vector<Event> stop() { return session_.stop(); }

    OutputQueue& frames() { return frames_; }
    CameraState state() const { return session_.states().front(); }

private:
    OutputQueue frames_{OutputQueue::Latest()};
    Session session_;
    ScratchFolder scratch_;
    WorkingDirectory inside_;
    OutputToFile driver_log_;
    Session::Clock::time_point next_check_{};
};

}  // namespace plendix
