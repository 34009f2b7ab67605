// Text that comes from outside (names of cameras, log lines, answers of a network), made fit for a
// terminal. Pure functions.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace plendix {

/// Without anything that a terminal acts on: control characters (C0, C1, DEL), marks that reorder or
/// hide text, and bytes that are no UTF-8. Line ends and tabs become spaces.
std::string printable(const std::string& text);

/// Characters of a UTF-8 text; a wide one counts as one column.
std::size_t columns_of(const std::string& text);

/// At most so many columns; what was cut ends with "...".
std::string cut(const std::string& text, std::size_t columns);

/// Broken at spaces into lines of at most so many columns; all but the first begin with `indent` spaces.
std::vector<std::string> wrapped(const std::string& text, std::size_t columns, std::size_t indent);

}  // namespace plendix
