// The sockets of clients.
#pragma once

namespace plendix {

/// A client that is no more is noticed, and pictures wait with us, where newer ones take their place.
void set_up_client_socket(int descriptor);

bool client_is_gone(int descriptor);

/// So many as wanted, or as this process may have: half of its descriptors are for others.
unsigned connection_limit(unsigned wanted);

}  // namespace plendix
