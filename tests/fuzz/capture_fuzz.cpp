// Captures and their replay. What the reader makes of a file is written again and must read the same; the
// replay gives the same frames, in the same order, as the capture's own bytes do when they are read in one
// piece.
#include <vector>

#include "file.h"
#include "formats/capture_file.h"
#include "formats/stream_reader.h"
#include "formats/video_tally.h"
#include "fuzz.h"
#include "sim/remote/source.h"

namespace {

using formats::Bytes;
using formats::CaptureRecord;

struct Frames {
    std::uint64_t count = 0;
    formats::VideoTally bytes;
    formats::StreamReader reader{[this](formats::FrameType, std::span<const std::uint8_t> payload) {
        ++count;
        bytes.add(payload);
    }};
    bool operator==(const Frames& other) const {
        return count == other.count && bytes.digest == other.bytes.digest;
    }
};

std::vector<CaptureRecord> read_all(formats::CaptureReader& reader) {
    std::vector<CaptureRecord> records;
    while (auto record = reader.next()) {
        fuzz::require(!record->bytes.empty(), "a record without bytes");
        records.push_back(*std::move(record));
    }
    return records;
}

bool same(const CaptureRecord& one, const CaptureRecord& other) {
    return one.time == other.time && one.direction == other.direction && one.bytes == other.bytes;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static fuzz::File file;
    static fuzz::File copy;
    const std::string path = file.holding({data, size});
    formats::CaptureReader reader;
    fuzz::require(reader.open(path), "open");
    const std::vector<CaptureRecord> records = read_all(reader);
    const bool damaged = reader.damaged();
    reader.rewind();
    const std::vector<CaptureRecord> again = read_all(reader);
    fuzz::require(std::ranges::equal(records, again, same) && reader.damaged() == damaged, "rewound");

    Bytes stream;
    std::size_t bytes = 0;
    {
        formats::CaptureWriter writer;
        fuzz::require(writer.open(copy.holding({})), "open the copy");
        for (const CaptureRecord& record : records) {
            fuzz::require(writer.write(record.time, record.direction, record.bytes), "write");
            bytes += record.bytes.size() + (reader.has_times() ? 16 : 0);
            if (record.direction == formats::Direction::from_remote) {
                stream.insert(stream.end(), record.bytes.begin(), record.bytes.end());
            }
        }
    }
    bytes += reader.has_times() ? 16 : 0;
    fuzz::require(damaged ? bytes < size : bytes == size, "bytes of the file");
    formats::CaptureReader copied;
    fuzz::require(copied.open(copy.name()), "open the copy again");
    fuzz::require(std::ranges::equal(records, read_all(copied), same) && !copied.damaged(), "copy");

    Frames whole;
    whole.reader.add(stream);
    Frames cut;
    for (std::span<const std::uint8_t> rest = stream; !rest.empty();) {
        const auto piece = rest.first(std::min(rest.size(), 1 + size % 61));
        cut.reader.add(piece);
        rest = rest.subspan(piece.size());
    }
    fuzz::require(cut == whole, "frames of the stream in pieces");
    Frames replayed;
    sim::ReplaySource replay;
    const bool has_frame = replay.open(path, true, sim::Time{0});
    fuzz::require(has_frame == formats::find_frame(stream).has_value(), "has a frame");
    while (has_frame && replay.due()) {
        replayed.reader.add(replay.take(sim::Time{0}));
    }
    fuzz::require(replayed == whole, "replayed frames");
    return 0;
}
