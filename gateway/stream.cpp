#include "gateway/stream.h"

#include <algorithm>
#include <cstring>

namespace gateway {

std::size_t VideoStream::read(char* buffer, std::size_t size) {
    std::size_t filled = 0;
    while (filled < size) {
        if (!part_) {
            const std::uint64_t before = viewer_.skipped;
            part_ = hub_.next(viewer_, Clock::now());
            skipped_ += viewer_.skipped - before;
            sent_ = 0;
            if (!part_) {
                break;
            }
        }
        const std::size_t count = std::min(size - filled, part_->size() - sent_);
        std::memcpy(buffer + filled, part_->data() + sent_, count);
        filled += count;
        sent_ += count;
        if (sent_ == part_->size()) {
            part_.reset();
        }
    }
    return filled;
}

std::size_t EventStream::read(char* buffer, std::size_t size) {
    if (sent_ == text_.size()) {
        text_.clear();
        sent_ = 0;
        station_.tell(listener_, text_);
    }
    const std::size_t count = std::min(size, text_.size() - sent_);
    std::memcpy(buffer, text_.data() + sent_, count);
    sent_ += count;
    return count;
}

}  // namespace gateway
