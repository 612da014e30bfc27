// The file by which other programs find a simulated board: lines NAME=VALUE in its directory's "env".
#pragma once

#include <map>
#include <optional>
#include <string>

namespace formats {

// Null when the directory has none.
std::optional<std::map<std::string, std::string>> read_board_file(const std::string& directory);

}  // namespace formats
