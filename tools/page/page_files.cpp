#include "page/page_files.h"

#include "page/page_table.h"

namespace plendix {

const PageFile* find_page_file(std::string_view path) {
    if (path == "/") path = "/index.html";
    for (std::size_t i = 0; i < page_table_size; ++i)
        if (page_table[i].path == path) return &page_table[i];
    return nullptr;
}

}  // namespace plendix
