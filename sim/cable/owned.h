#pragma once

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

#include "platform/file_descriptor.h"

namespace sim {

// Owns what a call just gave; throws std::runtime_error, with the purpose and errno's text, when it gave no
// descriptor.
inline FileDescriptor owned(int fd, const std::string& purpose) {
    if (fd < 0) {
        throw std::runtime_error(purpose + ": " + std::strerror(errno));
    }
    return FileDescriptor{fd};
}

}  // namespace sim
