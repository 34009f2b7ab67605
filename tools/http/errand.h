// A request that a worker answers while its connection sleeps.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>

#include "http/bell.h"
#include "http/request.h"
#include "http/response.h"
#include "http/router.h"

struct MHD_Connection;

namespace plendix {

/// What a handler answers, or the error that it threw.
Response answer_of(const Handler& handler, const Request& request);

/// Shared by the server's thread, which makes it, and the worker's.
class Errand {
public:
    /// Puts the connection to sleep.
    Errand(const Route& route, const Request& request, MHD_Connection* connection, Bell& bell);

    void run();                        // worker's thread; wakes the connection
    std::optional<Response> result();  // nothing: still under way
    void abandon();                    // wakes the connection, which nobody touches any more

private:
    void wake();

    const Route& route_;
    const std::shared_ptr<std::atomic<bool>> abandoned_ = std::make_shared<std::atomic<bool>>(false);
    Request request_;
    Bell& bell_;
    std::mutex mutex_;
    // Guarded by mutex_:
    MHD_Connection* connection_;  // null: it is awake
    std::optional<Response> result_;
};

}  // namespace plendix
