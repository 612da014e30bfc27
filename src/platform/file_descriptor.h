#pragma once

#include <unistd.h>

#include <utility>

// Owner of one file descriptor: closes it at the end of its life. -1 owns nothing.
class FileDescriptor {
  public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : fd_{fd} {}
    FileDescriptor(FileDescriptor&& other) noexcept : fd_{std::exchange(other.fd_, -1)} {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    // Gives the descriptor up: the caller closes it.
    int release() { return std::exchange(fd_, -1); }

  private:
    int fd_ = -1;
};
