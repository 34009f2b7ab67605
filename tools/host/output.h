// What a session hands everything to that comes: a recording, viewers.
#pragma once

#include "host/event.h"
#include "host/frame.h"

namespace plendix {

/// `push` comes on the plug-in's thread and on the session's, and never waits: while it runs no camera is
/// served. The session's thread calls `finish`.
class Output {
public:
    virtual ~Output() = default;
    virtual void push(const FramePointer& frame) = 0;
    virtual void push(const Event& event) = 0;
    /// Nothing more comes.
    virtual void finish() = 0;
};

}  // namespace plendix
