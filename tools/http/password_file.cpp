#include "http/password_file.h"

#include <crypt.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <sstream>

#include "host/plain_text.h"
#include "http/private_file.h"
#include "http/sessions.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr std::size_t longest_name = 64;
constexpr std::size_t shortest_token = 32;
const char* const yescrypt = "$y$";

/// Each line but empty ones and remarks, with where it is.
void for_each_line(const std::string& path,
                   const std::function<void(const std::string& line, const std::string& place)>& use) {
    std::istringstream text(private_text(path));
    std::string line;
    for (int number = 1; std::getline(text, line); ++number) {
        while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t'))
            line.pop_back();
        if (!line.empty() && line[0] != '#') use(line, path + ":" + std::to_string(number));
    }
}

/// Empty where it cannot be made: a setting of another kind, or a password longer than 511 bytes.
std::string hashed(const std::string& password, const std::string& setting) {
    const auto work = std::make_unique<crypt_data>();
    const char* const hash = crypt_r(password.c_str(), setting.c_str(), work.get());
    std::string text = hash == nullptr || hash[0] == '*' ? "" : hash;
    explicit_bzero(work.get(), sizeof *work);
    return text;
}

void require_yescrypt(const std::string& hash, const std::string& place) {
    const bool good = hash.compare(0, 3, yescrypt) == 0 && crypt_checksalt(hash.c_str()) == CRYPT_SALT_OK &&
                      std::count(hash.begin(), hash.end(), '$') == 4;
    if (!good)
        throw UsageError(place + ": no yescrypt hash after the name: 'plendix password NAME' prints a line");
}

}  // namespace

void check_user_name(const std::string& name) {
    const bool good = !name.empty() && name.size() <= longest_name && name[0] != '#' &&
                      name.find(':') == std::string::npos && printable(name) == name && name.front() != ' ' &&
                      name.back() != ' ';
    if (!good)
        throw UsageError("'" + cut(printable(name), longest_name) +
                         "' is no name to log in with: 1 to 64 characters, no colon, no space at its ends");
}

PasswordFile::PasswordFile(const std::string& path) {
    for_each_line(path, [this](const std::string& line, const std::string& place) {
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos) throw UsageError(place + ": no line as name:hash");
        const std::string name = line.substr(0, colon);
        check_user_name(name);
        require_yescrypt(line.substr(colon + 1), place);
        if (!hashes_.emplace(name, line.substr(colon + 1)).second)
            throw UsageError(place + ": " + name + " is there twice");
    });
    if (hashes_.empty()) throw UsageError(path + ": nobody is in it: 'plendix password NAME' prints a line");
    nobody_ = hashes_.begin()->second;
}

bool PasswordFile::right(const std::string& name, const std::string& password) const {
    const auto found = hashes_.find(name);
    const std::string& hash = found == hashes_.end() ? nobody_ : found->second;
    const std::string given = hashed(password, hash);
    const bool same = equal_in_constant_time(given, hash);
    return same && found != hashes_.end() && password.find('\0') == std::string::npos;
}

TokenFile::TokenFile(const std::string& path) {
    for_each_line(path, [this](const std::string& line, const std::string& place) {
        if (line.size() < shortest_token || line.find_first_of(" \t") != std::string::npos)
            throw UsageError(
                place + ": no token: 32 characters or more without a space, as from 'openssl rand -hex 32'");
        tokens_.push_back(line);
    });
    if (tokens_.empty()) throw UsageError(path + ": no token is in it: 'openssl rand -hex 32' prints one");
}

bool TokenFile::has(const std::string& token) const {
    bool found = false;
    for (const std::string& known : tokens_)
        found = equal_in_constant_time(known, token) || found;
    return found;
}

std::string password_hash(const std::string& password) {
    char setting[CRYPT_GENSALT_OUTPUT_SIZE];
    if (crypt_gensalt_rn(yescrypt, 0, nullptr, 0, setting, sizeof setting) == nullptr)
        throw Failure("cannot make a salt: " + error_text(errno));
    std::string hash = hashed(password, setting);
    if (hash.empty()) throw Failure("cannot hash the password: it has 512 bytes or more");
    return hash;
}

}  // namespace plendix
