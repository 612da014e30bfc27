#pragma once

#include <memory>
#include <string>

#include "ardenvue.h"
#include "platform/file_descriptor.h"

namespace client {

struct RingUnmap {
    void operator()(const ardenvue::FrameRing* ring) const;
};

// The ring of a running service (or what the last one left), mapped for reading alone.
struct RingMapping {
    std::unique_ptr<const ardenvue::FrameRing, RingUnmap> ring;
    FileDescriptor object;
    int error = 0;        // an ArdenvueError
    std::string problem;  // why there is none

    // False once another process has made the object shorter, or has unlinked it.
    bool is_whole() const;
};

// Maps the shared-memory object of that name. An object of another size is refused: it is no frame ring, and
// reading past its end would be a bus error.
RingMapping map_ring(const std::string& name);

}  // namespace client
