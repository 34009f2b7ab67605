// Whether a request comes from a page of this server, or from one that somebody lured a browser to.
// Pure functions.
#pragma once

#include <string>
#include <vector>

#include "http/request.h"

namespace plendix {

/// Names by which browsers may call this server.
struct OwnNames {
    std::vector<std::string> names;  // lower case, without port or brackets
    bool any_address = false;        // every numeric address: no name can be bound to it by others
    bool tls = false;
};

/// The name of a Host header or an origin, without port and brackets, in lower case; empty: no such text.
std::string name_of_host(const std::string& host);

/// Why the request is refused; status 0: it is not.
struct Denial {
    int status = 0;
    std::string line;
};

/// One Host header, that of this server; an Origin of this server or none, no other site's page behind
/// it; and for everything that `changes` something the header `X-Plendix: 1`, which no form can send.
Denial check_visitor(const Request& request, bool changes, const OwnNames& own);

}  // namespace plendix
