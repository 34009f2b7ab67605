// The sockets of clients.
#pragma once

namespace plendix {

/// A client that is no more is noticed, and pictures wait with us, where newer ones take their place.
void set_up_client_socket(int descriptor);

bool client_is_gone(int descriptor);

/// So many as wanted, or as this process may have; its limit of descriptors is raised where that is
/// allowed. Those below FD_SETSIZE are for others: all that code which waits with select() can use.
unsigned connection_limit(unsigned wanted);

/// The same socket at a descriptor from FD_SETSIZE on, where this process may have one.
int out_of_the_way(int descriptor);

}  // namespace plendix
