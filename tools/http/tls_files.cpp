#include "http/tls_files.h"

#include <gnutls/gnutls.h>

#include <cerrno>
#include <fstream>
#include <iterator>

#include "http/private_file.h"
#include "usage.h"

namespace plendix {
namespace {

std::string public_text(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(file)), {});
    if (!file) throw UsageError("cannot read " + path + ": " + error_text(errno));
    return text;
}

gnutls_datum_t datum_of(std::string& text) {
    return {reinterpret_cast<unsigned char*>(text.data()), static_cast<unsigned>(text.size())};
}

}  // namespace

TlsFiles read_tls_files(const std::string& certificate_path, const std::string& key_path) {
    TlsFiles files{public_text(certificate_path), private_text(key_path)};
    gnutls_certificate_credentials_t credentials = nullptr;
    gnutls_certificate_allocate_credentials(&credentials);
    const gnutls_datum_t certificate = datum_of(files.certificate);
    const gnutls_datum_t key = datum_of(files.key);
    const int result =
        gnutls_certificate_set_x509_key_mem(credentials, &certificate, &key, GNUTLS_X509_FMT_PEM);
    gnutls_certificate_free_credentials(credentials);
    if (result < 0)
        throw UsageError("no TLS with " + certificate_path + " and " + key_path + ": " +
                         gnutls_strerror(result));
    return files;
}

}  // namespace plendix
