// Files: paths of the board, gadget files among them. Every name under which libc offers the same call is
// here: the 64-bit ones that 32-bit boards use, and the ones that a fortified build uses.
#include <dirent.h>
#include <fcntl.h>

#include <cstdarg>
#include <cstdio>

#include "sim/board_library/board.h"
#include "sim/board_library/gadget_file.h"
#include "sim/board_library/next.h"

using board_library::board_path;
using board_library::gadget_file_name;
using board_library::open_gadget_file;

namespace {

// The optional last argument of an open: there only when a file may be made.
mode_t mode_argument(int flags, va_list arguments) {
    const bool makes_file = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return makes_file ? static_cast<mode_t>(va_arg(arguments, int)) : 0;
}

// Opens what the path names on the board: a gadget file, or whatever the function opens at the mapped path.
template <class Open>
int open_on_board(const char* path, int flags, Open open_path) {
    if (const char* name = gadget_file_name(path); name != nullptr) {
        return open_gadget_file(name, flags);
    }
    char buffer[PATH_MAX];
    return open_path(board_path(path, buffer));
}

}  // namespace

#define BOARD_OPEN(name)                                                                                \
    BOARD_CALL(int, name, (const char* path, int flags, ...)) {                                         \
        va_list arguments;                                                                              \
        va_start(arguments, flags);                                                                     \
        const mode_t mode = mode_argument(flags, arguments);                                            \
        va_end(arguments);                                                                              \
        return open_on_board(path, flags, [&](const char* at) { return NEXT(name)(at, flags, mode); }); \
    }
BOARD_OPEN(open)
BOARD_OPEN(open64)

#define BOARD_OPEN_FORTIFIED(name)                                                                \
    BOARD_CALL(int, name, (const char* path, int flags)) {                                        \
        return open_on_board(path, flags, [&](const char* at) { return NEXT(name)(at, flags); }); \
    }
BOARD_OPEN_FORTIFIED(__open_2)
BOARD_OPEN_FORTIFIED(__open64_2)

#define BOARD_OPENAT(name)                                                                            \
    BOARD_CALL(int, name, (int directory, const char* path, int flags, ...)) {                        \
        va_list arguments;                                                                            \
        va_start(arguments, flags);                                                                   \
        const mode_t mode = mode_argument(flags, arguments);                                          \
        va_end(arguments);                                                                            \
        return open_on_board(path, flags,                                                             \
                             [&](const char* at) { return NEXT(name)(directory, at, flags, mode); }); \
    }
BOARD_OPENAT(openat)
BOARD_OPENAT(openat64)

#define BOARD_OPENAT_FORTIFIED(name)                                                                         \
    BOARD_CALL(int, name, (int directory, const char* path, int flags)) {                                    \
        return open_on_board(path, flags, [&](const char* at) { return NEXT(name)(directory, at, flags); }); \
    }
BOARD_OPENAT_FORTIFIED(__openat_2)
BOARD_OPENAT_FORTIFIED(__openat64_2)

#define BOARD_FOPEN(name)                                           \
    BOARD_CALL(FILE*, name, (const char* path, const char* mode)) { \
        char buffer[PATH_MAX];                                      \
        return NEXT(name)(board_path(path, buffer), mode);          \
    }
BOARD_FOPEN(fopen)
BOARD_FOPEN(fopen64)

BOARD_CALL(DIR*, opendir, (const char* path)) {
    char buffer[PATH_MAX];
    return NEXT(opendir)(board_path(path, buffer));
}

#define BOARD_REMOVE(name)                           \
    BOARD_CALL(int, name, (const char* path)) {      \
        char buffer[PATH_MAX];                       \
        return NEXT(name)(board_path(path, buffer)); \
    }
BOARD_REMOVE(unlink)
BOARD_REMOVE(remove)
