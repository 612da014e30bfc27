#pragma once

#include <optional>
#include <string>

namespace sim {

// All of a file; none when it can't be opened.
std::optional<std::string> file_contents(const std::string& path);

}  // namespace sim
