// One request on its way: read, judged, handled, answered.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "http/errand.h"
#include "http/guard.h"
#include "http/request.h"
#include "http/response.h"
#include "http/router.h"
#include "http/server.h"
#include "http/stream_seat.h"
#include "http/worker.h"

namespace plendix {

struct ServerCounters {
    std::atomic<std::uint64_t> requests{0}, refused{0}, bytes{0}, connections{0}, open_connections{0},
        open_streams{0};
};

/// What all requests of a server use.
struct ServerParts {
    const ServerOptions& options;
    const Router& router;
    const Guard& guard;
    Workers& workers;
    ServerCounters& counters;
    Bell& bell;  // rung when a connection that slept is to be looked at
};

/// Made when the request line is there. The server's thread alone. Where a method returns false, the
/// connection is closed.
class Exchange {
public:
    Exchange(ServerParts& parts, MHD_Connection* connection, const std::string& peer,
             const std::string& target);
    ~Exchange();
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    bool judged() const { return judged_; }
    bool judge(const std::string& method);               // all headers are there
    bool take_body(const char* data, std::size_t size);  // a part of it
    bool answer();                                       // all is there; or a worker has the answer

    bool answering() const { return queued_ || errand_; }
    bool streaming() const { return seat_ != nullptr; }
    /// Nothing has been written since its client may have gone.
    bool asleep() const { return seat_ ? seat_->asleep() : errand_ && !queued_; }
    bool still_welcome() const { return parts_.guard.still_welcome(request_); }
    void cut();  // the connection is to end

private:
    void read_headers();
    bool has_body() const;
    std::optional<Response> refusal(const std::string& method);
    bool send(const Response& response);

    ServerParts& parts_;
    MHD_Connection* connection_;
    Request request_;
    bool target_good_ = false;
    bool judged_ = false;
    bool queued_ = false;
    std::size_t body_read_ = 0;
    RouteMatch match_;
    std::optional<Response> refusal_;
    std::shared_ptr<Errand> errand_;
    std::unique_ptr<StreamSeat> seat_;
};

}  // namespace plendix
