// The page that `plendix serve` hands out: its files, compiled in. Any thread; nothing is ever changed.
#pragma once

#include <string_view>

namespace plendix {

struct PageFile {
    std::string_view path;   // "/app.js"
    std::string_view type;   // for Content-Type
    std::string_view etag;   // with its quotes: changes when the bytes do
    std::string_view bytes;  // lives as long as the process
};

/// The file for the path of a request, without its query; "/" is index.html. Null: there is none.
const PageFile* find_page_file(std::string_view path);

}  // namespace plendix
