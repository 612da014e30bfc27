#include "ctl/video_format.h"

#include <utility>

#include "formats/access_units.h"
#include "formats/fragmented_mp4.h"
#include "formats/transport_stream.h"

namespace ctl {
namespace {

class ByteStream : public VideoFormat {
  public:
    explicit ByteStream(Write write) : write_{std::move(write)} {}
    void add(const ArdenvueFrame& frame) override { write_({frame.data, frame.size}); }

  private:
    Write write_;
};

// What is made of whole pictures.
class Pictures : public VideoFormat {
  public:
    void add(const ArdenvueFrame& frame) override {
        if (frame.missed_before > 0 || frame.follows_restart) {
            assembler_.drop();
        }
        assembler_.add({frame.data, frame.size}, frame.time_ns);
    }
    void flush() override { assembler_.flush(); }

  protected:
    explicit Pictures(Write write) : write_{std::move(write)} {}
    void write(std::span<const std::uint8_t> bytes) { write_(bytes); }

  private:
    virtual void take(const formats::AccessUnit& unit) = 0;

    Write write_;
    formats::AccessUnits assembler_{[this](const formats::AccessUnit& unit) { take(unit); }};
};

class Mp4 : public Pictures {
  public:
    explicit Mp4(Write write) : Pictures{std::move(write)} {}

  private:
    void take(const formats::AccessUnit& unit) override {
        if (unit.is_key && mp4_.has_changed(unit) && mp4_.start(unit)) {
            write(mp4_.header());
        }
        write(mp4_.fragment(unit));
    }

    formats::FragmentedMp4 mp4_;
};

class Ts : public Pictures {
  public:
    explicit Ts(Write write) : Pictures{std::move(write)} {}

  private:
    void take(const formats::AccessUnit& unit) override { write(stream_.packets(unit)); }

    formats::TransportStream stream_;
};

}  // namespace

std::unique_ptr<VideoFormat> make_video_format(const std::string& name, VideoFormat::Write write) {
    if (name == "mp4") {
        return std::make_unique<Mp4>(std::move(write));
    }
    if (name == "ts") {
        return std::make_unique<Ts>(std::move(write));
    }
    return std::make_unique<ByteStream>(std::move(write));
}

}  // namespace ctl
