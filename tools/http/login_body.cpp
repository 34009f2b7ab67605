#include "http/login_body.h"

#include <nlohmann/json.hpp>

#include "http/http_error.h"

namespace plendix {
namespace {

constexpr std::size_t longest_text = 1024;  // bytes

}  // namespace

Credentials parse_login(const std::string& body) {
    const auto json = nlohmann::json::parse(body, nullptr, false);
    const auto text = [&json](const char* key) {
        const bool there = json.is_object() && json.contains(key) && json[key].is_string();
        return there ? json[key].get<std::string>() : std::string();
    };
    Credentials credentials{text("name"), text("password")};
    if (credentials.password.empty() || credentials.name.size() > longest_text ||
        credentials.password.size() > longest_text)
        throw HttpError(400, R"(a login is {"name": "...", "password": "..."})");
    return credentials;
}

}  // namespace plendix
