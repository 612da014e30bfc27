// The calls of libc itself that this library makes, past the program's own wrappers (a sanitizer's) and past
// its own.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>

namespace board_library {

ssize_t libc_recvmsg(int fd, msghdr* message, int flags);
ssize_t libc_sendmsg(int fd, const msghdr* message, int flags);
int libc_socket(int domain, int type, int protocol);
int libc_connect(int fd, const sockaddr* address, socklen_t length);
int libc_close(int fd);

}  // namespace board_library
