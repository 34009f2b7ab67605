// Where frames come from: memory that the last reader of an earlier frame has let go.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "host/frame.h"

struct _EventParmsIn;

namespace plendix {

/// Any thread may let a frame go; the pool lives as long as its last frame.
class FramePool : public std::enable_shared_from_this<FramePool> {
public:
    /// The frame's copy, whose clock fields are for the caller to fill. Null when it is of a kind
    /// that this host does not know.
    std::shared_ptr<Frame> copy(const _EventParmsIn& event);

private:
    std::unique_ptr<Frame> take();
    void give_back(std::unique_ptr<Frame> frame);

    std::mutex mutex_;
    std::vector<std::unique_ptr<Frame>> idle_;
};

}  // namespace plendix
