// The table that embed_page.cmake makes of the page's files at build time.
#pragma once

#include <cstddef>

#include "page/page_files.h"

namespace plendix {

extern const PageFile page_table[];
extern const std::size_t page_table_size;

}  // namespace plendix
