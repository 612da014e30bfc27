// Transfers on descriptors: those of gadget files go to the simulated cable, all others to libc.
#include <poll.h>
#include <sys/types.h>

#include <cstdarg>
#include <cstddef>

#include "sim/board_library/board.h"
#include "sim/board_library/gadget_file.h"
#include "sim/board_library/next.h"

using namespace board_library;

BOARD_CALL(ssize_t, read, (int fd, void* buffer, std::size_t length)) {
    return is_gadget_file(fd) ? read_gadget_file(fd, buffer, length) : NEXT(read)(fd, buffer, length);
}

BOARD_CALL(ssize_t, __read_chk, (int fd, void* buffer, std::size_t length, std::size_t capacity)) {
    return is_gadget_file(fd) ? read_gadget_file(fd, buffer, length)
                              : NEXT(__read_chk)(fd, buffer, length, capacity);
}

BOARD_CALL(ssize_t, write, (int fd, const void* data, std::size_t length)) {
    return is_gadget_file(fd) ? write_gadget_file(fd, data, length) : NEXT(write)(fd, data, length);
}

BOARD_CALL(int, close, (int fd)) {
    if (is_gadget_file(fd)) {
        forget_gadget_file(fd);
    }
    return NEXT(close)(fd);
}

#define BOARD_IOCTL(name)                                                                                 \
    BOARD_CALL(int, name, (int fd, unsigned long request, ...)) {                                         \
        va_list arguments;                                                                                \
        va_start(arguments, request);                                                                     \
        void* argument = va_arg(arguments, void*);                                                        \
        va_end(arguments);                                                                                \
        return is_gadget_file(fd) ? control_gadget_file(fd, request) : NEXT(name)(fd, request, argument); \
    }
BOARD_IOCTL(ioctl)
BOARD_IOCTL(__ioctl_time64)

namespace {
template <typename Poll>
int poll_files(pollfd* entries, nfds_t count, Poll poll_next) {
    const int pending = poll_pending_events(entries, count);
    if (pending != 0) {
        return pending;
    }
    hide_unanswered_device(entries, count, true);
    const int result = poll_next();
    hide_unanswered_device(entries, count, false);
    return result;
}
}  // namespace

BOARD_CALL(int, poll, (pollfd * entries, nfds_t count, int timeout)) {
    return poll_files(entries, count, [&] { return NEXT(poll)(entries, count, timeout); });
}

BOARD_CALL(int, __poll_chk, (pollfd * entries, nfds_t count, int timeout, std::size_t capacity)) {
    return poll_files(entries, count, [&] { return NEXT(__poll_chk)(entries, count, timeout, capacity); });
}
