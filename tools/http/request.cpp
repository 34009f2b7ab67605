#include "http/request.h"

#include <strings.h>

#include <algorithm>
#include <charconv>

#include "http/http_error.h"

namespace plendix {
namespace {

template <typename Same>
std::optional<std::string> first_of(const Fields& fields, const Same& same) {
    const auto found =
        std::find_if(fields.begin(), fields.end(), [&](const auto& field) { return same(field.first); });
    if (found == fields.end()) return std::nullopt;
    return found->second;
}

std::optional<std::string> named(const Fields& fields, const std::string& name) {
    return first_of(fields, [&name](const std::string& other) { return other == name; });
}

}  // namespace

std::optional<std::string> Request::header(const std::string& name) const {
    return first_of(
        headers, [&name](const std::string& other) { return strcasecmp(other.c_str(), name.c_str()) == 0; });
}

std::optional<std::string> Request::cookie(const std::string& name) const {
    return named(cookies, name);
}

std::optional<std::string> Request::asked(const std::string& name) const {
    return named(query, name);
}

int Request::number(const std::string& name) const {
    return std::stoi(parameters.at(name));  // the router let digits through, and not too many
}

const std::string& Request::text(const std::string& name) const {
    return parameters.at(name);
}

std::int64_t Request::asked_number(const std::string& name, std::int64_t lowest, std::int64_t highest,
                                   std::int64_t otherwise) const {
    const auto value = asked(name);
    if (!value) return otherwise;
    std::int64_t number = 0;
    const char* end = value->data() + value->size();
    const auto [stop, error] = std::from_chars(value->data(), end, number);
    if (error != std::errc() || stop != end || number < lowest || number > highest)
        throw HttpError(400, name + "=" + value->substr(0, 40) + " is no whole number from " +
                                 std::to_string(lowest) + " to " + std::to_string(highest));
    return number;
}

}  // namespace plendix
