// Port 69 needs a privilege on most systems; this finds out, and gets it where that is harmless.
#pragma once

#include <string>
#include <vector>

namespace plendix::camera {

/// Makes port 69 of these loopback addresses available, or without any the port as such, whoever
/// uses it: at once where it already is, else in a network namespace of the process's own, which
/// no other process can reach (for a plain user in a user namespace too). Returns whether it is
/// available now. Requires that no thread has been started.
bool enter_private_network(const std::vector<std::string>& addresses = {});

}  // namespace plendix::camera
