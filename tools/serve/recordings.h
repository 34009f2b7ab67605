// The recordings that a page shows: what there is of them, what is being played, what is being cut.
#pragma once

#include <atomic>
#include <filesystem>
#include <memory>

#include "serve/playback.h"
#include "serve/recording_index.h"

namespace plendix {

/// Any thread.
class Recordings {
public:
    /// An empty folder: there are none.
    explicit Recordings(const std::filesystem::path& folder)
        : index_(std::make_shared<const RecordingIndex>(folder)) {}

    const std::shared_ptr<const RecordingIndex>& index() const { return index_; }
    Playbacks& playbacks() { return playbacks_; }
    /// Whoever works at a clip asks this all the time.
    bool ended() const { return ended_; }
    /// Before the server stops, which waits for what is under way.
    void end() {
        ended_ = true;
        playbacks_.end();
    }

private:
    const std::shared_ptr<const RecordingIndex> index_;
    Playbacks playbacks_;
    std::atomic<bool> ended_{false};
};

}  // namespace plendix
