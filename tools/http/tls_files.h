// Certificate and key of a server that speaks TLS.
#pragma once

#include <string>

namespace plendix {

struct TlsFiles {
    std::string certificate;  // PEM, with what leads to its authority
    std::string key;
};

/// Throws UsageError when they cannot be read or do not belong together.
TlsFiles read_tls_files(const std::string& certificate_path, const std::string& key_path);

}  // namespace plendix
