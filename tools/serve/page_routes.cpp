// The page's files. Who is not logged in gets them too: they hold nothing but the page.
#include "page/page_files.h"
#include "serve/routes.h"

namespace plendix {
namespace {

Response file_response(const Request& request, const PageFile& file) {
    const std::string_view tag = file.etag.substr(1, file.etag.size() - 2);  // without its quotes
    const SharedBytes bytes{nullptr, reinterpret_cast<const std::uint8_t*>(file.bytes.data()),
                            file.bytes.size()};
    return tagged_response(request, std::string(tag), std::string(file.type), bytes);
}

}  // namespace

void add_page_routes(Router& router) {
    for (const char* pattern : {"/", "/{file:text}"})
        router.add("GET", pattern,
                   [](const Request& request) {
                       const PageFile* file = find_page_file(request.path);
                       return file == nullptr ? error_response(404, "there is no such page")
                                              : file_response(request, *file);
                   },
                   {true, Lane::server});
}

}  // namespace plendix
