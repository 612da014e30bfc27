#include "sim/board_library/board.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace board_library {
namespace {

Board the_board{"", "", -1, -1};

struct Mapping {
    const char* real;
    const char* on_board;
};

constexpr Mapping mappings[] = {
    {"/dev/gadget", "/dev/gadget"},
    {"/sys/firmware/devicetree/base/model", "/model"},
    {"/run/ardenvue", "/run"},
};

constexpr const char* gadget_directory = "/dev/gadget/";

int port_from_environment(const char* name) {
    const char* text = std::getenv(name);
    return text == nullptr ? -1 : std::atoi(text);
}

__attribute__((constructor)) void read_environment() {
    const char* directory = std::getenv("ARDENVUE_BOARD");
    if (directory == nullptr || std::strlen(directory) >= PATH_MAX / 2) {
        return;
    }
    const char* slash = std::strrchr(directory, '/');
    std::snprintf(the_board.shm_prefix, sizeof the_board.shm_prefix, "/%.200s.",
                  slash == nullptr ? directory : slash + 1);
    the_board.relay_port = port_from_environment("ARDENVUE_BOARD_RELAY_PORT");
    the_board.notice_port = port_from_environment("ARDENVUE_BOARD_NOTICE_PORT");
    std::memcpy(the_board.directory, directory, std::strlen(directory) + 1);
}

}  // namespace

const Board& board() {
    return the_board;
}

const char* board_path(const char* path, char (&buffer)[PATH_MAX]) {
    if (the_board.directory[0] == '\0' || path == nullptr || path[0] != '/') {
        return path;
    }
    for (const Mapping& mapping : mappings) {
        const std::size_t length = std::strlen(mapping.real);
        if (std::strncmp(path, mapping.real, length) == 0 && (path[length] == '\0' || path[length] == '/')) {
            const int written = std::snprintf(buffer, sizeof buffer, "%s%s%s", the_board.directory,
                                              mapping.on_board, path + length);
            return written < PATH_MAX ? buffer : path;
        }
    }
    return path;
}

const char* gadget_file_name(const char* path) {
    const std::size_t length = std::strlen(gadget_directory);
    const bool inside = the_board.directory[0] != '\0' && path != nullptr &&
                        std::strncmp(path, gadget_directory, length) == 0 && path[length] != '\0';
    return inside ? path + length : nullptr;
}

bool fault(const char* name, int error, const char* detail) {
    if (the_board.directory[0] == '\0') {
        return false;
    }
    char path[PATH_MAX];
    const int written = std::snprintf(path, sizeof path, "%s/faults/%s%s%s", the_board.directory, name,
                                      detail == nullptr ? "" : ".", detail == nullptr ? "" : detail);
    if (written >= PATH_MAX || access(path, F_OK) != 0) {
        return false;
    }
    errno = error;
    return true;
}

void note(const char* file, const char* line) {
    char path[PATH_MAX];
    std::snprintf(path, sizeof path, "%.2000s/%s", the_board.directory, file);
    const int fd = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd >= 0) {
        const iovec parts[] = {{const_cast<char*>(line), std::strlen(line)}, {const_cast<char*>("\n"), 1}};
        [[maybe_unused]] const ssize_t written = writev(fd, parts, 2);
        close(fd);
    }
}

}  // namespace board_library
