#include "client/ring_mapping.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "ardenvue/error.h"

namespace client {
namespace {

constexpr auto ring_size = static_cast<off_t>(sizeof(ardenvue::FrameRing));

RingMapping refused(const std::string& name, int error, const std::string& reason) {
    RingMapping mapping;
    mapping.error = error;
    mapping.problem = "frame ring \"" + name + "\": " + reason;
    return mapping;
}

}  // namespace

void RingUnmap::operator()(const ardenvue::FrameRing* ring) const {
    munmap(const_cast<ardenvue::FrameRing*>(ring), sizeof *ring);
}

bool RingMapping::is_whole() const {
    struct stat status {};
    return fstat(object.get(), &status) == 0 && status.st_size == ring_size && status.st_nlink > 0;
}

RingMapping map_ring(const std::string& name) {
    FileDescriptor object{shm_open(name.c_str(), O_RDONLY | O_CLOEXEC, 0)};
    if (!object) {
        return refused(name, ARDENVUE_ERROR_SYSTEM,
                       errno == ENOENT ? "there is none; the service has not run yet" : std::strerror(errno));
    }
    struct stat status {};
    if (fstat(object.get(), &status) != 0) {
        return refused(name, ARDENVUE_ERROR_SYSTEM, std::strerror(errno));
    }
    if (status.st_size != ring_size) {
        return refused(name, ARDENVUE_ERROR_DATA,
                       std::to_string(status.st_size) + " bytes instead of " + std::to_string(ring_size));
    }
    void* address = mmap(nullptr, sizeof(ardenvue::FrameRing), PROT_READ, MAP_SHARED, object.get(), 0);
    if (address == MAP_FAILED) {
        return refused(name, ARDENVUE_ERROR_SYSTEM, std::strerror(errno));
    }
    RingMapping mapping;
    mapping.ring.reset(static_cast<const ardenvue::FrameRing*>(address));
    mapping.object = std::move(object);
    return mapping;
}

}  // namespace client
