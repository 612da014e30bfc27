#include "sim/board/files.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace sim {

Descriptor own_descriptor(int fd, const std::string& purpose) {
    if (fd < 0) {
        throw std::runtime_error(purpose + ": " + std::strerror(errno));
    }
    return {new int{fd}, [](const int* owned) {
                close(*owned);
                delete owned;
            }};
}

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
