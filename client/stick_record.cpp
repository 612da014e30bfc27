#include "client/stick_record.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "ardenvue.h"

namespace client {
namespace {

constexpr auto record_size = static_cast<off_t>(sizeof(ardenvue::RcRawState));

}  // namespace

bool StickRecord::refuse(const std::string& why) {
    problem_ = "stick inputs \"" + name_ + "\": " + why;
    object_ = FileDescriptor{};
    return false;
}

bool StickRecord::open() {
    object_ = FileDescriptor{shm_open(name_.c_str(), O_RDWR | O_CLOEXEC, 0)};
    if (!object_ && errno == ENOENT) {
        object_ = FileDescriptor{shm_open(name_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)};
    }
    struct stat status {};
    if (!object_ || fstat(object_.get(), &status) != 0) {
        return refuse(std::strerror(errno));
    }
    if (!S_ISREG(status.st_mode) || (status.st_uid != 0 && status.st_uid != geteuid())) {
        return refuse("it belongs to user " + std::to_string(status.st_uid) +
                      ", whom the service does not trust");
    }
    return true;
}

// The object that the name leads to, with its size.
bool StickRecord::make_ready() {
    struct stat status {};
    if (object_ && (fstat(object_.get(), &status) != 0 || status.st_nlink == 0)) {
        object_ = FileDescriptor{};
    }
    if (!object_ && (!open() || fstat(object_.get(), &status) != 0)) {
        return false;
    }
    if (status.st_size != record_size && ftruncate(object_.get(), record_size) != 0) {
        return refuse(std::strerror(errno));
    }
    return true;
}

bool StickRecord::write(const StickInputs& inputs) {
    if (!make_ready()) {
        return false;
    }
    const ssize_t written =
        pwrite(object_.get(), inputs.data(), sizeof inputs, offsetof(ardenvue::RcRawState, motion_input));
    return written == static_cast<ssize_t>(sizeof inputs) ||
           refuse(written < 0 ? std::strerror(errno) : "cut short");
}

}  // namespace client
