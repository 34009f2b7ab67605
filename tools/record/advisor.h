// Finds out why a camera does not deliver, beside the recording.
#pragma once

#include <chrono>
#include <future>
#include <map>
#include <string>
#include <vector>

#include "host/camera_state.h"
#include "host/event.h"

namespace plendix {

/// Asks the network about a camera that has not delivered for a while, once until it has delivered
/// again, and not more than a few cameras a minute: who has many that fail has one fault, not many.
/// The thread that owns it calls; questions run on threads of their own.
class Advisor {
public:
    using Time = CameraState::Time;

    /// Asks about cameras that are due, and returns what was found out since the last call: states
    /// with a "diagnosis".
    std::vector<Event> advise(const std::vector<CameraState>& cameras, Time now);

private:
    struct Question {
        std::string address;
        std::future<std::string> answer;  // invalid once it was told
        Time asked{};
    };

    void forget_others(const CameraState& camera);
    std::string answer_of(int camera);
    bool due(const CameraState& camera, Time now) const;
    bool busy(Time now) const;

    std::map<int, Question> questions_;               // by camera number
    std::vector<std::future<std::string>> unwanted_;  // under way: to let go of one would be to wait for it
};

}  // namespace plendix
