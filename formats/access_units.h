// Puts the pieces of live video together to access units, as a file format wants them: all NAL units of one
// picture (ITU-T H.264, 7.4.1.2.3).
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "formats/nal_units.h"

namespace formats {

struct AccessUnit {
    std::span<const NalUnit> units;  // until the taker returns
    bool is_key;                     // a decoder can begin here: it holds a sequence parameter set
    std::int64_t time_ns;            // of its first piece
};

// A piece is as a rule one picture, and is handed on at once; a picture larger than a piece comes in several,
// cut anywhere. Nothing in a piece tells that it is the last one of its picture. So a piece that is large
// enough to be one of several waits for the next one, and the size that counts as large is learnt from the
// stream. Keeps its memory: no allocation once it has grown. Not for several threads at once.
class AccessUnits {
  public:
    using Taker = std::function<void(const AccessUnit&)>;

    // A picture of more bytes than this is none, and is dropped.
    static constexpr std::size_t limit = 4'194'304;
    // After so long a silence nothing more comes of a picture. On a busy machine its pieces may be a tenth of
    // a second apart, and a picture without its end spoils all up to the next key picture.
    static constexpr int silence_ms = 500;

    explicit AccessUnits(Taker taker);

    // Takes a piece and hands on the access units that are complete.
    void add(std::span<const std::uint8_t> piece, std::int64_t time_ns);

    // Hands on what waits: at the end, or after silence_ms.
    void flush();

    // Forgets what waits: pieces are missing from here on.
    void drop();

  private:
    void hand_on();

    Taker taker_;
    std::vector<std::uint8_t> bytes_;  // the pieces of what is not complete yet
    std::vector<NalUnit> units_;
    bool has_slice_ = false;
    std::int64_t time_ns_ = 0;
    bool was_handed_on_ = false;  // what the last piece ended
    std::size_t last_size_ = 0;   // of that piece
    std::size_t whole_below_;     // pieces smaller than this end their picture
};

}  // namespace formats
