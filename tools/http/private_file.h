// Files with secrets.
#pragma once

#include <string>

namespace plendix {

/// What is in it. Throws UsageError when it cannot be read, and when everybody can read or change it.
std::string private_text(const std::string& path);

}  // namespace plendix
