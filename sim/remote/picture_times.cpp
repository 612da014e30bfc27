#include "sim/remote/picture_times.h"

#include <cinttypes>
#include <ctime>

namespace sim {

bool PictureTimes::open(const std::string& path) {
    file_.reset(std::fopen(path.c_str(), "we"));
    // By lines, so that it can be followed while it grows.
    return file_ && std::setvbuf(file_.get(), nullptr, _IOLBF, BUFSIZ) == 0;
}

void PictureTimes::add(std::uint64_t number) {
    if (!file_) {
        return;
    }
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    std::fprintf(file_.get(), "%" PRIu64 " %lld.%09ld\n", number, static_cast<long long>(now.tv_sec),
                 now.tv_nsec);
}

}  // namespace sim
