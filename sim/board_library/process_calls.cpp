// Shell commands, shared memory, threads.
#include <pthread.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "sim/board_library/board.h"
#include "sim/board_library/gadget_file.h"
#include "sim/board_library/next.h"

using namespace board_library;

namespace {

constexpr const char* set_up_commands[] = {"modprobe gadgetfs", "mkdir /dev/gadget", "mount -t gadgetfs"};

// The board's own name of a shared-memory object.
const char* board_shm_name(const char* name, char (&buffer)[NAME_MAX]) {
    const char* bare = name + (name[0] == '/' ? 1 : 0);
    const int length = std::snprintf(buffer, sizeof buffer, "%s%s", board().shm_prefix, bare);
    return length < NAME_MAX ? buffer : name;
}

bool shm_is_full(int fd) {
    char link[32];
    char target[PATH_MAX];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const ssize_t length = readlink(link, target, sizeof target - 1);
    target[length > 0 ? length : 0] = '\0';
    const char* object = std::strstr(target, board().shm_prefix);
    return board().directory[0] != '\0' && object != nullptr &&
           fault("shm_space", ENOSPC, object + std::strlen(board().shm_prefix));
}

}  // namespace

BOARD_CALL(int, system, (const char* command)) {
    if (board().directory[0] != '\0' && command != nullptr) {
        for (const char* set_up : set_up_commands) {
            if (std::strncmp(command, set_up, std::strlen(set_up)) == 0) {
                note("setup.log", command);
                return 0;
            }
        }
    }
    return NEXT(system)(command);
}

BOARD_CALL(FILE*, popen, (const char* command, const char* mode)) {
    return fault("popen", ENOMEM) ? nullptr : NEXT(popen)(command, mode);
}

BOARD_CALL(int, shm_open, (const char* name, int flags, mode_t mode)) {
    if (board().directory[0] == '\0' || name == nullptr) {
        return NEXT(shm_open)(name, flags, mode);
    }
    if (fault("shm_open", EACCES, name + (name[0] == '/' ? 1 : 0))) {
        return -1;
    }
    char buffer[NAME_MAX];
    return NEXT(shm_open)(board_shm_name(name, buffer), flags, mode);
}

BOARD_CALL(int, shm_unlink, (const char* name)) {
    char buffer[NAME_MAX];
    const bool on_board = board().directory[0] != '\0' && name != nullptr;
    return NEXT(shm_unlink)(on_board ? board_shm_name(name, buffer) : name);
}

// Reserving the memory of a shared-memory object fails as on a full /dev/shm.
#define BOARD_FALLOCATE(name, offset_type)                                    \
    BOARD_CALL(int, name, (int fd, offset_type offset, offset_type length)) { \
        return shm_is_full(fd) ? ENOSPC : NEXT(name)(fd, offset, length);     \
    }
BOARD_FALLOCATE(posix_fallocate, off_t)
BOARD_FALLOCATE(posix_fallocate64, off64_t)

// The one lock that is initialised while the device is open is the link's, the one thread started while an
// OUT endpoint is open is its reader.
BOARD_CALL(int, pthread_mutex_init, (pthread_mutex_t * mutex, const pthread_mutexattr_t* attributes)) {
    return gadget_device_is_open() && fault("mutex_init", EAGAIN)
               ? EAGAIN
               : NEXT(pthread_mutex_init)(mutex, attributes);
}

BOARD_CALL(int, pthread_create,
           (pthread_t * thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument)) {
    return out_endpoint_is_open() && fault("reader_thread", EAGAIN)
               ? EAGAIN
               : NEXT(pthread_create)(thread, attributes, body, argument);
}
