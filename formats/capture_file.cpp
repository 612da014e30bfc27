#include "formats/capture_file.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "platform/little_endian.h"

namespace formats {
namespace {

constexpr std::size_t header_size = 16;
constexpr std::size_t record_header_size = 16;
constexpr std::size_t magic_size = 8;
constexpr char magic[magic_size + 1] = "ARDVCAP1";
constexpr std::uint32_t max_record_bytes = 16'777'216;
constexpr std::uint64_t max_record_time = 1'000'000ULL * 86'400 * 366;  // a year of recording
constexpr std::size_t plain_record_bytes = 16'384;

void store_le64(std::uint8_t* bytes, std::uint64_t value) {
    store_le32(bytes, static_cast<std::uint32_t>(value));
    store_le32(bytes + 4, static_cast<std::uint32_t>(value >> 32));
}

std::uint64_t load_le64(const std::uint8_t* bytes) {
    return load_le32(bytes) | static_cast<std::uint64_t>(load_le32(bytes + 4)) << 32;
}

bool write_all(std::FILE* file, std::span<const std::uint8_t> bytes) {
    return std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
}

}  // namespace

bool CaptureWriter::open(const std::string& path) {
    file_.reset(std::fopen(path.c_str(), "wb"));
    if (!file_) {
        return false;
    }
    start_ = std::chrono::steady_clock::now();
    const auto wall_clock = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    std::array<std::uint8_t, header_size> header{};
    std::memcpy(header.data(), magic, magic_size);
    store_le64(&header[8], static_cast<std::uint64_t>(wall_clock.count()));
    return write_all(file_.get(), header);
}

bool CaptureWriter::write(Direction direction, std::span<const std::uint8_t> bytes) {
    const auto time =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start_);
    return write(time, direction, bytes);
}

bool CaptureWriter::write(std::chrono::microseconds time, Direction direction,
                          std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const auto piece = bytes.first(std::min<std::size_t>(bytes.size(), max_record_bytes));
        std::array<std::uint8_t, record_header_size> header{};
        store_le64(header.data(), static_cast<std::uint64_t>(time.count()));
        store_le32(&header[8], static_cast<std::uint32_t>(piece.size()));
        header[12] = static_cast<std::uint8_t>(direction);
        if (!write_all(file_.get(), header) || !write_all(file_.get(), piece)) {
            return false;
        }
        bytes = bytes.subspan(piece.size());
    }
    return true;
}

bool CaptureWriter::flush() {
    return std::fflush(file_.get()) == 0;
}

bool CaptureReader::open(const std::string& path) {
    file_.reset(std::fopen(path.c_str(), "rb"));
    if (!file_) {
        return false;
    }
    std::array<std::uint8_t, header_size> header{};
    const std::size_t read = std::fread(header.data(), 1, header.size(), file_.get());
    if (std::ferror(file_.get()) != 0) {
        return false;
    }
    has_times_ = read == header_size && std::memcmp(header.data(), magic, magic_size) == 0;
    rewind();
    return true;
}

void CaptureReader::rewind() {
    std::fseek(file_.get(), has_times_ ? static_cast<long>(header_size) : 0, SEEK_SET);
    damaged_ = false;
}

std::optional<CaptureRecord> CaptureReader::next() {
    CaptureRecord record{std::chrono::microseconds{0}, Direction::from_remote, {}};
    if (!has_times_) {
        record.bytes.resize(plain_record_bytes);
        record.bytes.resize(std::fread(record.bytes.data(), 1, plain_record_bytes, file_.get()));
        return record.bytes.empty() ? std::nullopt : std::optional{std::move(record)};
    }
    std::array<std::uint8_t, record_header_size> header{};
    const std::size_t read = std::fread(header.data(), 1, header.size(), file_.get());
    if (read == 0) {
        return std::nullopt;
    }
    const std::uint64_t time = load_le64(header.data());
    const std::uint32_t size = load_le32(&header[8]);
    if (read < header.size() || time > max_record_time || size == 0 || size > max_record_bytes ||
        header[12] > 1) {
        damaged_ = true;
        return std::nullopt;
    }
    record.time = std::chrono::microseconds{time};
    record.direction = static_cast<Direction>(header[12]);
    record.bytes.resize(size);
    if (std::fread(record.bytes.data(), 1, size, file_.get()) != size) {
        damaged_ = true;
        return std::nullopt;
    }
    return record;
}

}  // namespace formats
