// The texts that a request is made of, decoded. Pure functions; what they read comes from anybody.
#pragma once

#include <optional>
#include <string>

#include "http/request.h"

namespace plendix {

/// With each %XX replaced; nothing where one is not complete.
std::optional<std::string> percent_decoded(const std::string& text);

/// Path and query of a request's target, as "/a/b%20c?d=e". Nothing when it is none that this server
/// could have: no '/' at its beginning, no UTF-8, control characters, '\\', or a segment "." or "..".
struct Target {
    std::string path;
    Fields query;
};
std::optional<Target> parse_target(const std::string& target);

/// "a=1&b=x+y"; fields that cannot be decoded are left out.
Fields parse_query(const std::string& text);

/// A Cookie header: "a=1; b=2".
Fields parse_cookies(const std::string& text);

/// The token of an Authorization header "Bearer TOKEN"; empty: it is none.
std::string bearer_token(const std::string& header);

}  // namespace plendix
