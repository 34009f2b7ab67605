// The socket that a server accepts connections from.
#pragma once

#include "http/listen_address.h"

namespace plendix {

/// Throws Failure with what is in the way. The caller closes it.
int open_listening_socket(const ListenAddress& address);

int port_of_socket(int descriptor);

}  // namespace plendix
