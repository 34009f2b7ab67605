#include "record/config_probe.h"

#include <algorithm>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>

#include "host/document_builder.h"
#include "host/document_reader.h"
#include "host/plugin_library.h"
#include "host/process_state.h"
#include "host/scratch_folder.h"
#include "host/signals.h"
#include "plugin/host_records.h"
#include "usage.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// A refused camera shows only in a configuration that somebody asks for.
constexpr milliseconds query_period{500};

class Probe {
public:
    Probe(const fs::path& plugin, const std::vector<CameraSettings>& cameras)
        : wanted_(cameras), plugin_(plugin, [this](const _EventParmsIn& event) { return take(event); }) {}

    std::vector<ProbedCamera> run(milliseconds patience) {
        const StopSignals signals;
        plugin_.configure(configure_document(wanted_));
        plugin_.open();
        const auto end = Clock::now() + patience;
        while (Clock::now() < end && !signals.requested() &&
               !await_all(std::min(end, Clock::now() + query_period)))
            plugin_.configure(query_document(wanted_.front().number));
        plugin_.close();
        std::vector<ProbedCamera> result;
        for (const auto& report : reported_)
            result.push_back({report, streams(report.settings.number)});
        return result;
    }

private:
    bool await_all(Clock::time_point end) {
        std::unique_lock lock(mutex_);
        return changed_.wait_until(lock, end, [this] {
            return std::all_of(wanted_.begin(), wanted_.end(),
                               [this](const auto& camera) { return known(camera); });
        });
    }

    /// Nothing more is to be learnt of the camera.
    bool known(const CameraSettings& camera) const {
        const auto is_camera = [&](const auto& one) { return one.settings.number == camera.number; };
        const auto report = std::find_if(reported_.begin(), reported_.end(), is_camera);
        return report != reported_.end() && (!report->settings.enabled || streams(camera.number));
    }

    /// The driver writes what the camera shall hold before it asks for the second picture.
    bool streams(int camera) const {
        const auto pictures = pictures_.find(camera);
        return pictures != pictures_.end() && pictures->second >= 2;
    }

    /// On the thread of the plug-in.
    bool take(const _EventParmsIn& event) {
        const std::lock_guard lock(mutex_);
        if (event.Kind == EventKindVideo) {
            ++pictures_[static_cast<int>(event.SourceId >> 8U & 0xFFU)];
        } else {
            take_document({static_cast<const char*>(event.Data), event.DataLength});
        }
        changed_.notify_one();
        return true;
    }

    void take_document(const std::string& text) {
        if (auto cameras = read_configuration(text)) {
            reported_ = std::move(*cameras);
            return;
        }
        for (const Event& event : reader_.read(text, 0)) {
            if (event.kind != EventKind::connection) continue;
            pictures_[event.camera] = 0;  // the picture that begins the video comes next
            for (const auto& camera : wanted_)
                if (camera.number == event.camera) send_picture(camera);
        }
    }

    void send_picture(const CameraSettings& camera) {
        const std::string document = picture_document(camera);
        if (!document.empty()) plugin_.configure(document);
    }

    const std::vector<CameraSettings>& wanted_;
    DocumentReader reader_;  // on the thread of the plug-in
    std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_:
    std::vector<ReportedCamera> reported_;
    std::map<int, int> pictures_;  // since the video began, by camera

    PluginLibrary plugin_;  // last: nothing calls into a probe that is half built
};

}  // namespace

std::vector<ProbedCamera> probe_cameras(const fs::path& plugin, const std::vector<CameraSettings>& cameras,
                                        milliseconds patience) {
    const fs::path file = plugin.empty() ? default_plugin() : fs::absolute(plugin);
    const ScratchFolder folder;
    const WorkingDirectory inside(folder.path());
    const OutputToFile driver_log("driver.log");
    return Probe(file, cameras).run(patience);
}

}  // namespace plendix
