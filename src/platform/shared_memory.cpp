#include "platform/shared_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/file_descriptor.h"

namespace {
constexpr mode_t owner_only = 0600;

bool set_size(int fd, std::size_t size) {
    const auto length = static_cast<off_t>(size);
    if (ftruncate(fd, length) != 0) {
        return false;
    }
    int error = EINTR;
    while (error == EINTR) {
        error = posix_fallocate(fd, 0, length);
    }
    return error == 0;
}
}  // namespace

void* map_shared_memory(const char* name, std::size_t size, const SharedMemoryNotices& notices) {
    FileDescriptor object{shm_open(name, O_RDWR, owner_only)};
    if (object) {
        std::fputs(notices.opened, stderr);
    } else {
        std::fputs(notices.creating, stderr);
        object = FileDescriptor{shm_open(name, O_RDWR | O_CREAT, owner_only)};
    }
    if (!object || !set_size(object.get(), size)) {
        return nullptr;
    }
    void* address = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, object.get(), 0);
    if (address == MAP_FAILED) {
        return nullptr;
    }
    object.release();
    return address;
}
