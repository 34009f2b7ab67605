// What the HTTP server answers: the page, an interface for programs, live pictures.
#pragma once

#include <string>

#include "http/router.h"

namespace plendix {

class Guard;
class House;
class Recordings;
class Server;

/// All of them are added before the server starts; the house outlives it.
void add_camera_routes(Router& router, House& house, const std::string& version);
void add_event_routes(Router& router, House& house);
void add_live_routes(Router& router, House& house);
/// `server` is there by the time of the first request.
void add_program_routes(Router& router, House& house, const Guard& guard, const Server*& server,
                        const std::string& version);
/// `recordings` live as long as the router.
void add_record_routes(Router& router, House& house, Recordings& recordings);
void add_page_routes(Router& router);

/// The camera that the route names. Throws HttpError 404 where there is none.
int camera_of(const Request& request, House& house);

}  // namespace plendix
