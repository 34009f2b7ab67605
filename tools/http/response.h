// What the HTTP server answers. A plain value: any thread may make it.
#pragma once

#include <cstdint>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "http/request.h"
#include "http/shared_bytes.h"
#include "http/stream.h"

namespace plendix {

struct Response {
    int status = 200;
    Fields headers;  // beside those that every response has
    SharedBytes body;
    std::shared_ptr<Stream> stream;  // in place of the body
    std::uint64_t stream_size = 0;   // bytes, where they are known before: else it goes out in chunks

    Response& with(const std::string& name, const std::string& value);
};

Response bytes_response(const std::string& type, SharedBytes body);
Response stream_response(const std::string& type, std::shared_ptr<Stream> stream);
Response text_response(const std::string& text, const std::string& type = "text/plain; charset=utf-8");
/// Text that is no UTF-8 goes out with replacement characters.
Response json_response(const nlohmann::ordered_json& value, int status = 200);
/// {"error": "one line"}
Response error_response(int status, const std::string& line);
Response empty_response();  // 204

/// The same bytes again: answers 304 when the client has them already. `tag` without quotes.
Response tagged_response(const Request& request, const std::string& tag, const std::string& type,
                         SharedBytes body);

}  // namespace plendix
