// What is wanted of the cameras, and what became of each wish.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/camera_settings.h"
#include "host/camera_state.h"
#include "host/configuration_reader.h"
#include "serve/settings_json.h"

namespace plendix {

class Session;

/// Requests come on the server's thread and are answered at once; the session's thread hands them to the
/// driver and learns what it made of them. Times are of the monotonic clock, in milliseconds.
class Desk {
public:
    struct Status {
        CameraSettings wanted;
        std::vector<std::string> pending;  // handed over, and not reported back yet
        std::vector<std::string> differs;  // reported, and not as wanted
        bool undo = false;                 // no picture came since the last change, for a while
    };

    /// `changes`: what `changes` gave in an earlier life of the process; what it cannot use is left out.
    explicit Desk(const std::vector<CameraSettings>& cameras, const nlohmann::json& changes = {});

    // --- From any thread ---

    bool knows(int camera) const;
    Status status(int camera) const;
    std::vector<CameraSettings> wanted() const;
    /// Throws UsageError, and then nothing has changed.
    void patch(int camera, const nlohmann::json& patch, std::int64_t now_ms);
    /// Takes the last change back; false when there is none to be taken back.
    bool undo(int camera, std::int64_t now_ms);
    /// The relay's state, from now on or for so many seconds.
    void set_relay(int camera, bool on, double seconds, std::int64_t now_ms);
    void set_recording(int camera, bool on);

    // --- On the session's thread ---

    /// What is wanted otherwise than configured, by camera and setting, when it is not what it was at the
    /// last call. Null when it is.
    nlohmann::ordered_json take_changes();
    /// Other cameras, as a configuration file has them now; what was changed since stays so.
    void replace(std::vector<CameraSettings> cameras);
    /// Hands over what is to be handed over. Throws Failure where the driver has no room for it; what is
    /// wanted of the cameras is handed over at the next call, then.
    void work(Session& session, std::int64_t now_ms);
    /// Ends what was to be on for a while, before the session stops. Returns the cameras.
    std::set<int> end_relays(Session& session);
    void learn(const std::vector<CameraState>& states, const std::map<int, ReportedCamera>& reports,
               std::int64_t now_ms);

private:
    struct Wish {
        std::string reported_before;  // JSON
        std::int64_t since_ms;
    };
    struct Entry {
        CameraSettings configured;
        CameraSettings wanted;
        std::optional<CameraSettings> before;  // the last change
        std::int64_t changed_ms = 0;
        bool delivers = true;  // since that change
        std::map<std::string, Wish> wishes;
        std::optional<CameraSettings> reported;
    };
    struct Switching {
        int camera;
        bool on;
        std::int64_t at_ms;
    };

    std::vector<Switching> take_due_relays(std::int64_t now_ms);
    void hand_over_cameras(Session& session);
    Entry& entry(int camera);
    const Entry& entry(int camera) const;
    void change(Entry& entry, const CameraSettings& settings, std::int64_t now_ms);
    static void settle(Entry& entry, bool live, std::int64_t now_ms);
    bool can_undo(const Entry& entry) const;

    mutable std::mutex mutex_;
    // Guarded by mutex_:
    std::map<int, Entry> entries_;
    bool changed_ = false;
    bool unsaved_ = false;
    std::vector<Switching> relays_;  // still to come
    std::vector<Switching> marks_;
    std::int64_t learnt_ms_ = 0;
};

}  // namespace plendix
