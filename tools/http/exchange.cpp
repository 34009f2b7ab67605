#include "http/exchange.h"

#include <microhttpd.h>
#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "http/library_response.h"
#include "http/uri.h"

namespace plendix {
namespace {

constexpr std::size_t most_discarded = 1U << 20U;  // bytes of a body that is too large

MHD_Result take_header(void* fields, MHD_ValueKind, const char* name, const char* value) {
    static_cast<Fields*>(fields)->emplace_back(name, value == nullptr ? "" : value);
    return MHD_YES;
}

bool is_refusal(int status) {
    return status == 401 || status == 403 || status == 421 || status == 429;
}

Response too_large(std::size_t limit) {
    return error_response(413, "a request's body has at most " + std::to_string(limit) + " bytes");
}

}  // namespace

Exchange::Exchange(ServerParts& parts, MHD_Connection* connection, const std::string& peer,
                   const std::string& target)
    : parts_(parts), connection_(connection) {
    request_.peer = peer;
    auto parsed = parse_target(target);
    target_good_ = parsed.has_value();
    if (!target_good_) return;
    request_.path = std::move(parsed->path);
    request_.query = std::move(parsed->query);
}

Exchange::~Exchange() {
    if (errand_) errand_->abandon();
    if (seat_) --parts_.counters.open_streams;
}

void Exchange::read_headers() {
    MHD_get_connection_values(connection_, MHD_HEADER_KIND, take_header, &request_.headers);
    for (const auto& [name, value] : request_.headers) {
        if (strcasecmp(name.c_str(), "Cookie") != 0) continue;
        const Fields cookies = parse_cookies(value);
        request_.cookies.insert(request_.cookies.end(), cookies.begin(), cookies.end());
    }
}

bool Exchange::has_body() const {
    const std::string length = request_.header("Content-Length").value_or("0");
    return length != "0" || request_.header("Transfer-Encoding");
}

/// Why there is no handler for it; strangers are not told what there would be.
std::optional<Response> Exchange::refusal(const std::string& method) {
    if (!target_good_) return error_response(400, "no path that this server could have");
    match_ = parts_.router.find(method, request_.path);
    auto refused = parts_.guard.refuse(request_, method, match_.route);
    if (refused) return refused;
    if (match_.status == 405)
        return error_response(405, "this path takes " + match_.allow).with("Allow", match_.allow);
    if (match_.route == nullptr) return error_response(404, "there is nothing of this name");
    const std::string length = request_.header("Content-Length").value_or("0");
    if (std::strtoull(length.c_str(), nullptr, 10) > parts_.options.body_bytes)
        return too_large(parts_.options.body_bytes);
    return std::nullopt;
}

bool Exchange::judge(const std::string& method) {
    judged_ = true;
    ++parts_.counters.requests;
    read_headers();
    request_.method = method == "HEAD" ? "GET" : method;
    refusal_ = refusal(method);
    request_.parameters = match_.parameters;
    // Without a body, the answer can wait for the request's end, and the connection be used again.
    return !refusal_ || !has_body() || send(*refusal_);
}

bool Exchange::take_body(const char* data, std::size_t size) {
    body_read_ += size;
    if (body_read_ > most_discarded) return false;
    if (!refusal_ && body_read_ > parts_.options.body_bytes) {
        refusal_ = too_large(parts_.options.body_bytes);
        request_.body.clear();
    }
    if (!refusal_) request_.body.append(data, size);
    return true;
}

bool Exchange::answer() {
    if (queued_) return true;
    if (refusal_) return send(*refusal_);
    if (errand_) {
        auto result = errand_->result();
        return result && send(*result);
    }
    const Route& route = *match_.route;
    if (route.options.lane == Lane::server) return send(answer_of(route.handler, request_));
    Worker& worker = parts_.workers.of(route.options.lane);
    if (!worker.has_room())
        return send(
            error_response(503, "too much is asked just now: again in a second").with("Retry-After", "1"));
    errand_ = std::make_shared<Errand>(route, request_, connection_, parts_.bell);
    worker.push([errand = errand_] { errand->run(); });
    return true;
}

bool Exchange::send(const Response& response) try {
    queued_ = true;
    if (is_refusal(response.status)) ++parts_.counters.refused;
    if (response.stream) {
        seat_ = std::make_unique<StreamSeat>(response.stream, connection_, parts_.bell, parts_.counters.bytes,
                                             parts_.options.log);
        ++parts_.counters.open_streams;
    }
    const auto patience = static_cast<unsigned>(response.stream ? 0 : parts_.options.idle_time.count());
    MHD_set_connection_option(connection_, MHD_CONNECTION_OPTION_TIMEOUT, patience);
    parts_.counters.bytes += response.body.size;
    const LibraryResponse made = library_response(response, seat_.get());
    return MHD_queue_response(connection_, static_cast<unsigned>(response.status), made.get()) == MHD_YES;
} catch (const std::exception& error) {
    if (parts_.options.log) parts_.options.log(request_.path + ": " + error.what());
    return false;
}

void Exchange::cut() {
    if (errand_) errand_->abandon();
    if (seat_) seat_->cut();
}

}  // namespace plendix
