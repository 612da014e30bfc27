#include "formats/capture_file.h"

#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

namespace {

using std::chrono::microseconds;

class CaptureFile : public testing::Test {
  protected:
    std::string path = testing::TempDir() + "capture." + std::to_string(getpid());

    void TearDown() override { std::remove(path.c_str()); }
    std::string contents() const {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    void put(const std::string& bytes) const { std::ofstream(path, std::ios::binary) << bytes; }
};

// Captures are kept for years: the bytes on disk must not change with the code.
TEST_F(CaptureFile, HasTheDocumentedLayout) {
    formats::CaptureWriter writer;
    ASSERT_TRUE(writer.open(path));
    const std::uint8_t stream[] = {0x55, 0xCC, 0x4A};
    const std::uint8_t command[] = {0x55};
    ASSERT_TRUE(writer.write(microseconds{0x1'0203'0405}, formats::Direction::from_remote, stream));
    ASSERT_TRUE(writer.write(microseconds{0x1'0203'0406}, formats::Direction::to_remote, command));
    ASSERT_TRUE(writer.flush());
    const std::string file = contents();
    ASSERT_EQ(file.size(), 16u + 19u + 17u);
    EXPECT_EQ(file.substr(0, 8), "ARDVCAP1");
    EXPECT_EQ(file.substr(16, 19),
              std::string("\x05\x04\x03\x02\x01\0\0\0\x03\0\0\0\0\0\0\0\x55\xCC\x4A", 19));
    EXPECT_EQ(file.substr(35), std::string("\x06\x04\x03\x02\x01\0\0\0\x01\0\0\0\x01\0\0\0\x55", 17));

    formats::CaptureReader reader;
    ASSERT_TRUE(reader.open(path));
    EXPECT_TRUE(reader.has_times());
    for (int pass = 0; pass < 2; ++pass) {
        const auto first = reader.next();
        const auto second = reader.next();
        ASSERT_TRUE(first && second);
        EXPECT_EQ(first->time, microseconds{0x1'0203'0405});
        EXPECT_EQ(first->bytes, std::vector<std::uint8_t>(stream, stream + 3));
        EXPECT_EQ(second->direction, formats::Direction::to_remote);
        EXPECT_FALSE(reader.next());
        EXPECT_FALSE(reader.damaged());
        reader.rewind();
    }
}

TEST_F(CaptureFile, EndsAtDamageAndSaysSo) {
    formats::CaptureWriter writer;
    ASSERT_TRUE(writer.open(path));
    const std::uint8_t bytes[100] = {};
    ASSERT_TRUE(writer.write(microseconds{1}, formats::Direction::from_remote, bytes));
    ASSERT_TRUE(writer.write(microseconds{2}, formats::Direction::from_remote, bytes));
    ASSERT_TRUE(writer.flush());
    const std::string whole = contents();
    std::string wrong_direction = whole;
    wrong_direction[132 + 12] = 2;
    std::string wrong_length = whole;
    wrong_length[132 + 11] = '\x7F';
    std::string wrong_time = whole;
    wrong_time[132 + 7] = '\x5F';
    for (const std::string& damaged : {whole.substr(0, whole.size() - 1), whole.substr(0, 132 + 15),
                                       wrong_direction, wrong_length, wrong_time}) {
        put(damaged);
        formats::CaptureReader reader;
        ASSERT_TRUE(reader.open(path));
        EXPECT_TRUE(reader.next());
        EXPECT_FALSE(reader.next());
        EXPECT_TRUE(reader.damaged());
    }
}

TEST_F(CaptureFile, TakesAnythingElseAsAPlainStream) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{7}, std::size_t{40'000}}) {
        const std::string stream(size, 'x');
        put(stream);
        formats::CaptureReader reader;
        ASSERT_TRUE(reader.open(path));
        EXPECT_FALSE(reader.has_times());
        std::string joined;
        while (const auto record = reader.next()) {
            EXPECT_EQ(record->direction, formats::Direction::from_remote);
            joined.append(record->bytes.begin(), record->bytes.end());
        }
        EXPECT_EQ(joined, stream);
        EXPECT_FALSE(reader.damaged());
    }
    EXPECT_FALSE(formats::CaptureReader{}.open(path + ".missing"));
}

}  // namespace
