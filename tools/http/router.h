// Which function answers which request. Filled before the server starts, then only read.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "http/request.h"
#include "http/response.h"

namespace plendix {

using Handler = std::function<Response(const Request&)>;

/// Where a handler runs. The server's own thread is for what takes no time: all streams wait for it. The
/// others are workers of one thread each, so that what is short does not wait for what is long.
enum class Lane {
    server,
    worker,    // some milliseconds of a processor
    reader,    // reads from a disk, a second perhaps
    long_job,  // minutes: it asks Request::given_up
    login      // what strangers may ask
};

struct RouteOptions {
    bool open = false;  // nobody needs to be logged in
    Lane lane = Lane::server;
};

struct Route {
    std::string method;
    std::vector<std::string> pattern;  // its segments
    Handler handler;
    RouteOptions options;
};

/// The route that was found, or why none was: 404, or 405 with the methods that are allowed.
struct RouteMatch {
    const Route* route = nullptr;
    std::map<std::string, std::string> parameters;
    int status = 404;
    std::string allow;
};

class Router {
public:
    /// A pattern as `/api/cameras/{number}` or `/camera/{number}.jpg`: `{name}` is a whole number of up
    /// to nine digits, `{name:text}` any text without '/'. GET routes answer HEAD too. Of two that match,
    /// the first added is taken.
    ///
    /// A handler may throw HttpError; UsageError becomes 400, anything else 500.
    void add(const std::string& method, const std::string& pattern, Handler handler,
             RouteOptions options = {});

    RouteMatch find(const std::string& method, const std::string& path) const;

private:
    std::vector<Route> routes_;
};

}  // namespace plendix
