// What somebody sends who logs in. A pure function; what it reads comes from anybody.
#pragma once

#include <string>

namespace plendix {

struct Credentials {
    std::string name;
    std::string password;
};

/// Of {"name": "...", "password": "..."}; throws HttpError 400, whose line has nothing of what was sent.
Credentials parse_login(const std::string& body);

}  // namespace plendix
