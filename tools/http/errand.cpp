#include "http/errand.h"

#include <microhttpd.h>

#include <exception>
#include <utility>

#include "http/http_error.h"
#include "usage.h"

namespace plendix {

Response answer_of(const Handler& handler, const Request& request) try {
    return handler(request);
} catch (const HttpError& error) {
    return error_response(error.status(), error.what());
} catch (const UsageError& error) {
    return error_response(400, error.what());
} catch (const Failure& error) {
    return error_response(500, error.what());
} catch (const std::exception&) {
    return error_response(500, "the server could not do it");  // what() is of no use to a client
}

Errand::Errand(const Route& route, const Request& request, MHD_Connection* connection, Bell& bell)
    : route_(route), request_(request), bell_(bell), connection_(connection) {
    request_.abandoned = abandoned_;
    MHD_suspend_connection(connection);
}

/// Requires mutex_.
void Errand::wake() {
    if (connection_ == nullptr) return;
    MHD_resume_connection(connection_);
    bell_.ring();
    connection_ = nullptr;
}

void Errand::run() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (connection_ == nullptr) return;
    }
    Response response = answer_of(route_.handler, request_);
    const std::lock_guard<std::mutex> lock(mutex_);
    result_ = std::move(response);
    wake();
}

std::optional<Response> Errand::result() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::move(result_);
}

void Errand::abandon() {
    *abandoned_ = true;
    const std::lock_guard<std::mutex> lock(mutex_);
    wake();
}

}  // namespace plendix
