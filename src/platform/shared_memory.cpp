#include "platform/shared_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <mutex>

#include "platform/file_descriptor.h"

namespace {

constexpr mode_t owner_only = 0600;

struct Mapping {
    std::atomic<std::uint8_t*> address;  // null: free; stored last, the signal handler looks at it first
    std::size_t size;
    const char* name;
    int fd;
    std::atomic<bool> is_cut;  // another process made the object shorter
    bool is_told;
};

Mapping mappings[4];
std::mutex mappings_lock;  // all of it but what the signal handler reads and writes

Mapping* find_mapping(const void* address) {
    Mapping* const found = std::find_if(std::begin(mappings), std::end(mappings),
                                        [address](const Mapping& each) { return each.address == address; });
    return found == std::end(mappings) ? nullptr : found;
}

// A page behind the object's end was touched. What is mapped there is replaced, so that the touch can be
// taken up again.
void replace_cut_mapping(int signal_number, siginfo_t* info, void* /*context*/) {
    const auto touched = reinterpret_cast<std::uintptr_t>(info->si_addr);
    for (Mapping& mapping : mappings) {
        std::uint8_t* const address = mapping.address;
        if (address != nullptr && touched - reinterpret_cast<std::uintptr_t>(address) < mapping.size) {
            const int error = errno;
            void* const own = mmap(address, mapping.size, PROT_READ | PROT_WRITE,
                                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
            errno = error;
            if (own != MAP_FAILED) {
                mapping.is_cut = true;
                return;
            }
        }
    }
    // A bus error of another kind ends the process. A fault would come again, one that was sent would not.
    signal(signal_number, SIG_DFL);
    raise(signal_number);
}

void* remember(const char* name, std::uint8_t* address, std::size_t size, int fd) {
    struct sigaction action {};
    action.sa_sigaction = replace_cut_mapping;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGBUS, &action, nullptr);
    const std::lock_guard guard{mappings_lock};
    Mapping* const free = find_mapping(nullptr);
    if (free == nullptr) {
        return nullptr;
    }
    free->size = size;
    free->name = name;
    free->fd = fd;
    free->is_cut = false;
    free->is_told = false;
    free->address = address;
    return address;
}

const char* kind_of(mode_t mode) {
    return S_ISREG(mode) ? "file" : S_ISDIR(mode) ? "folder" : S_ISFIFO(mode) ? "pipe" : "thing";
}

bool is_trusted(const char* name, int fd) {
    struct stat status {};
    if (fstat(fd, &status) != 0) {
        return false;
    }
    const bool trusted = S_ISREG(status.st_mode) && (status.st_uid == 0 || status.st_uid == geteuid());
    if (!trusted) {
        std::fprintf(stderr, "Shared memory %s refused: a %s of user %u, %lld bytes\n", name,
                     kind_of(status.st_mode), status.st_uid, static_cast<long long>(status.st_size));
        errno = 0;
    }
    return trusted;
}

bool set_size(int fd, std::size_t size) {
    const auto length = static_cast<off_t>(size);
    if (ftruncate(fd, length) != 0) {
        return false;
    }
    int error = EINTR;
    while (error == EINTR) {
        error = posix_fallocate(fd, 0, length);
    }
    errno = error;
    return error == 0;
}

void* map(int fd, std::size_t size) {
    void* const address = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    return address == MAP_FAILED ? nullptr : address;
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
    void* address = nullptr;
    if (object && is_trusted(name, object.get()) && set_size(object.get(), size)) {
        address = map(object.get(), size);
    }
    if (address == nullptr) {
        if (errno != 0) {
            std::fprintf(stderr, "Shared memory %s can't be had: %s\n", name, std::strerror(errno));
        }
        return nullptr;
    }
    return remember(name, static_cast<std::uint8_t*>(address), size, object.release());
}

void unmap_shared_memory(void* address) {
    const std::lock_guard guard{mappings_lock};
    Mapping* const mapping = address != nullptr ? find_mapping(address) : nullptr;
    if (mapping != nullptr) {
        mapping->address = nullptr;
        munmap(address, mapping->size);
        close(mapping->fd);
    }
}

SharedMemoryName shared_memory_name(const void* address) {
    const std::lock_guard guard{mappings_lock};
    const Mapping* const mapping = find_mapping(address);
    struct stat ours {};
    struct stat named {};
    if (mapping == nullptr || fstat(mapping->fd, &ours) != 0) {
        return SharedMemoryName::nowhere;
    }
    const FileDescriptor object{shm_open(mapping->name, O_RDONLY, 0)};
    if (!object) {
        return errno == ENOENT ? SharedMemoryName::nowhere : SharedMemoryName::to_another;
    }
    if (fstat(object.get(), &named) != 0) {
        return SharedMemoryName::nowhere;
    }
    const bool same = ours.st_dev == named.st_dev && ours.st_ino == named.st_ino;
    return same ? SharedMemoryName::to_it : SharedMemoryName::to_another;
}

void restore_shared_memory() {
    const std::lock_guard guard{mappings_lock};
    for (Mapping& mapping : mappings) {
        if (mapping.address == nullptr || !mapping.is_cut) {
            continue;
        }
        if (!mapping.is_told) {
            mapping.is_told = true;
            std::fprintf(stderr, "Shared memory %s was made shorter by another process\n", mapping.name);
        }
        struct stat status {};
        if (fstat(mapping.fd, &status) != 0 || status.st_size < static_cast<off_t>(mapping.size)) {
            continue;
        }
        // Had elsewhere first: an object that can't be mapped leaves what is in its place.
        void* const again = map(mapping.fd, mapping.size);
        if (again == nullptr) {
            continue;
        }
        mapping.is_cut = false;  // before: from then on it may be made shorter again
        if (mremap(again, mapping.size, mapping.size, MREMAP_MAYMOVE | MREMAP_FIXED,
                   mapping.address.load()) == MAP_FAILED) {
            mapping.is_cut = true;
            munmap(again, mapping.size);
            continue;
        }
        mapping.is_told = false;
        std::fprintf(stderr, "Shared memory %s has its size again\n", mapping.name);
    }
}
