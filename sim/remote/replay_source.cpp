#include "formats/stream_reader.h"
#include "sim/remote/source.h"

namespace sim {

bool ReplaySource::open(const std::string& path, bool flat_out, Time start) {
    flat_out_ = flat_out;
    if (!reader_.open(path)) {
        return false;
    }
    // A recording begins anywhere in the stream: the rest of a frame that began before it is left out.
    Bytes beginning;
    for (read_next(); next_; read_next()) {
        beginning.insert(beginning.end(), next_->bytes.begin(), next_->bytes.end());
        if (const auto frame = formats::find_frame(beginning)) {
            next_->bytes.assign(beginning.begin() + static_cast<std::ptrdiff_t>(*frame), beginning.end());
            shift_ = start - next_->time;
            return true;
        }
        beginning.erase(beginning.begin(),
                        beginning.end() - static_cast<std::ptrdiff_t>(
                                              std::min(beginning.size(), formats::frame_header_size - 1)));
    }
    return false;
}

void ReplaySource::read_next() {
    do {
        next_ = reader_.next();
    } while (next_ && next_->direction != formats::Direction::from_remote);
}

std::optional<Time> ReplaySource::due() {
    if (!next_) {
        return std::nullopt;
    }
    return flat_out_ ? Time{0} : next_->time + shift_;
}

std::span<const std::uint8_t> ReplaySource::take(Time now) {
    const Time late = now - (next_->time + shift_);
    if (late > longest_delay) {
        shift_ += late;
    }
    piece_ = std::move(next_->bytes);
    read_next();
    return piece_;
}

}  // namespace sim
