#include "sim/board/file_contents.h"

#include <fstream>
#include <sstream>

namespace sim {

std::optional<std::string> file_contents(const std::string& path) {
    std::ifstream file{path, std::ios::binary};
    if (!file) {
        return std::nullopt;
    }
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

}  // namespace sim
