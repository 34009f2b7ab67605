// All cameras as they are, for whoever asks: what the driver said last, with its age.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/camera_state.h"
#include "host/configuration_reader.h"
#include "host/event.h"
#include "serve/history.h"

namespace plendix {

class Desk;
class LiveHub;

/// The session's thread writes, any may read.
class CameraBoard {
public:
    /// Both live longer. `recorded`: pictures are kept by this process.
    CameraBoard(const Desk& desk, const LiveHub& hub, bool recorded)
        : desk_(desk), hub_(hub), recorded_(recorded) {}

    /// Motion as it is held, trigger, relay, recording marks, and what is wrong.
    void note(const Event& event);
    void update(const std::vector<CameraState>& states, const std::map<int, ReportedCamera>& reports,
                CameraState::Time now);

    std::vector<CameraState> states() const;
    /// Every camera that is switched on sends pictures.
    bool ready() const;

    /// What changes from second to second; null where there is no such camera.
    nlohmann::ordered_json summary(int camera) const;
    std::vector<nlohmann::ordered_json> summaries() const;
    /// The same as JSON text by camera, made once for all who ask within a quarter of a second.
    using Texts = std::vector<std::pair<int, std::string>>;
    std::shared_ptr<const Texts> summary_texts() const;
    /// The same with settings, wishes and zones.
    nlohmann::ordered_json detail(int camera) const;
    nlohmann::ordered_json history(int camera) const;

private:
    struct Entry {
        CameraState state;
        std::optional<ReportedCamera> report;
        std::string diagnosis;
        bool motion = false;
        bool marked = false;
        std::optional<bool> trigger, relay;
        History history;
    };

    nlohmann::ordered_json summary(const Entry& entry) const;

    const Desk& desk_;
    const LiveHub& hub_;
    const bool recorded_;
    mutable std::mutex mutex_;
    std::map<int, Entry> entries_;  // guarded by mutex_
    mutable std::mutex texts_mutex_;
    // Guarded by texts_mutex_:
    mutable std::shared_ptr<const Texts> texts_;
    mutable CameraState::Time texts_made_{};
};

}  // namespace plendix
