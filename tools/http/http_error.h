// Thrown by whoever handles a request that cannot be answered as it was meant.
#pragma once

#include <stdexcept>
#include <string>

namespace plendix {

/// The client gets {"error": "..."} with this one line, which names the value and what would be right.
class HttpError : public std::runtime_error {
public:
    HttpError(int status, const std::string& line) : std::runtime_error(line), status_(status) {}
    int status() const { return status_; }

private:
    int status_;
};

}  // namespace plendix
