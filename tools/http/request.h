// What somebody asked of the HTTP server, read and checked. A plain value: it may go to any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace plendix {

/// Names with values in the order in which they came; a name may come more than once.
using Fields = std::vector<std::pair<std::string, std::string>>;

struct Request {
    std::string method;  // as a route has it: GET where the client asked for HEAD
    std::string path;    // decoded, begins with '/'
    std::string peer;    // the client's numeric address, without port
    std::string user;    // who is logged in; empty: nobody, where nobody needs to be
    std::string body;
    Fields query;
    Fields headers;
    Fields cookies;
    std::map<std::string, std::string> parameters;  // of the route's pattern
    std::shared_ptr<const std::atomic<bool>> abandoned;

    /// Whether nobody waits for the answer any more: a worker may ask.
    bool given_up() const { return abandoned && *abandoned; }

    /// First header of this name, whose case does not matter.
    std::optional<std::string> header(const std::string& name) const;
    std::optional<std::string> cookie(const std::string& name) const;
    std::optional<std::string> asked(const std::string& name) const;  // first of the query

    /// A parameter of the pattern: `{name}` is a number, `{name:text}` any text.
    int number(const std::string& name) const;
    const std::string& text(const std::string& name) const;

    /// A number of the query, or `otherwise` where it is not given. Throws HttpError 400 when it is
    /// no whole number of this range.
    std::int64_t asked_number(const std::string& name, std::int64_t lowest, std::int64_t highest,
                              std::int64_t otherwise) const;
};

}  // namespace plendix
