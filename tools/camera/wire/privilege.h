// Port 69 needs a privilege on most systems; this finds out, and gets it where that is harmless.
#pragma once

namespace plendix::camera {

/// Whether this process may bind UDP port 69 (a port in use by another counts as yes).
bool can_bind_port_69();

/// Makes port 69 of the loopback addresses available: at once where it already is, else in a
/// user and network namespace of the process's own, which no other process can reach. Returns
/// whether it is available now. Requires that no thread has been started.
bool enter_private_network();

}  // namespace plendix::camera
