#include "ctl/ring_mapping.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "platform/file_descriptor.h"

namespace ctl {
namespace {

RingMapping refused(const std::string& name, const std::string& reason) {
    return {nullptr, "frame ring \"" + name + "\": " + reason};
}

}  // namespace

void RingUnmap::operator()(const ardenvue::FrameRing* ring) const {
    munmap(const_cast<ardenvue::FrameRing*>(ring), sizeof *ring);
}

RingMapping map_ring(const std::string& name) {
    const FileDescriptor fd{shm_open(name.c_str(), O_RDONLY | O_CLOEXEC, 0)};
    if (!fd) {
        return refused(name,
                       errno == ENOENT ? "there is none; the service has not run yet" : std::strerror(errno));
    }
    struct stat status {};
    if (fstat(fd.get(), &status) != 0) {
        return refused(name, std::strerror(errno));
    }
    if (status.st_size != static_cast<off_t>(sizeof(ardenvue::FrameRing))) {
        return refused(name, std::to_string(status.st_size) + " bytes instead of " +
                                 std::to_string(sizeof(ardenvue::FrameRing)));
    }
    void* address = mmap(nullptr, sizeof(ardenvue::FrameRing), PROT_READ, MAP_SHARED, fd.get(), 0);
    if (address == MAP_FAILED) {
        return refused(name, std::strerror(errno));
    }
    RingMapping mapping;
    mapping.ring.reset(static_cast<const ardenvue::FrameRing*>(address));
    return mapping;
}

}  // namespace ctl
