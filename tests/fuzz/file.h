#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <span>
#include <string>

namespace fuzz {

// A file in memory alone, for what is read by its name.
class File {
  public:
    const std::string& name() const { return name_; }
    // The name of the file, which then has these bytes.
    const std::string& holding(std::span<const std::uint8_t> bytes) {
        if (ftruncate(fd_, 0) != 0 || pwrite(fd_, bytes.data(), bytes.size(), 0) != ssize_t(bytes.size())) {
            std::abort();
        }
        return name_;
    }

  private:
    int fd_ = memfd_create("fuzz", MFD_CLOEXEC);
    std::string name_ = "/proc/self/fd/" + std::to_string(fd_);
};

}  // namespace fuzz
