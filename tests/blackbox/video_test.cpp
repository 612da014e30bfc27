// Video in, what other processes see out: the frame ring, the picture size's files, the lines on stderr.
#include <cstring>
#include <filesystem>
#include <fstream>

#include "tests/blackbox/harness.h"
#include "tests/hex.h"

namespace {

using namespace blackbox;

constexpr const char* ring_name = "ardenvue_framebuffer";
constexpr const char* transcoding_name = "ardenvue_framebuffer_transcoding";
constexpr std::size_t ring_size = 60'003'624;
constexpr std::size_t transcoding_size = 13'003'624;
constexpr std::size_t slot_count = 200;

Bytes frame(std::uint8_t type, const Bytes& payload) {
    const std::size_t size = payload.size();
    const std::uint8_t header[] = {
        0x55, 0xCC, type, 0x57, static_cast<std::uint8_t>(size), static_cast<std::uint8_t>(size >> 8), 0, 0};
    Bytes bytes(sizeof header + size);
    std::copy(payload.begin(), payload.end(), std::copy(std::begin(header), std::end(header), bytes.begin()));
    return bytes;
}

// A payload that differs from frame to frame in size and in every byte.
Bytes picture(std::size_t number) {
    Bytes bytes(1 + number * 7919 % 6000);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<std::uint8_t>(number * 31 + i * 7 + i / 256);
    }
    return bytes;
}

Bytes expected_slot(std::uint16_t number, const Bytes& payload) {
    Bytes bytes = {
        static_cast<std::uint8_t>(payload.size()), static_cast<std::uint8_t>(payload.size() >> 8), 0, 0,
        static_cast<std::uint8_t>(number),         static_cast<std::uint8_t>(number >> 8),         0, 0};
    bytes.insert(bytes.end(), 10, 1);
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
}

bool is_zero(const std::uint8_t* first, const std::uint8_t* last) {
    return std::all_of(first, last, [](std::uint8_t byte) { return byte == 0; });
}

class VideoTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { service = new Service; }
    static void TearDownTestSuite() {
        delete service;
        service = nullptr;
    }

    void SetUp() override {
        if (!streaming) {
            service->stream();
            streaming = true;
        }
        ring = service->board().shared_memory(ring_name);
        ASSERT_TRUE(ring);
    }

    // Sends the payloads as one video frame each, and waits until the last is in the ring.
    void publish(const std::vector<Bytes>& payloads) {
        Bytes frames;
        for (const Bytes& payload : payloads) {
            const Bytes one = frame(0x4A, payload);
            frames.insert(frames.end(), one.begin(), one.end());
        }
        ASSERT_TRUE(service->send_frames(frames));
        published = static_cast<std::uint16_t>(published + payloads.size());
        ASSERT_TRUE(eventually([&] { return holds_frame(static_cast<std::uint16_t>(published - 1)); }))
            << newest_number();
    }

    // As a reader finds the newest frame: the slot before the next one has its number.
    bool holds_frame(std::uint16_t number) const {
        const std::uint8_t* newest = slot((header()[4] + slot_count - 1) % slot_count);
        return newest_number() == number && newest[8] == 1 && newest[4] + 256U * newest[5] == number;
    }

    std::uint16_t newest_number() const {
        return __atomic_load_n(reinterpret_cast<const std::uint16_t*>(ring->data.get() + 2),
                               __ATOMIC_ACQUIRE);
    }
    Bytes header() const { return {ring->data.get(), ring->data.get() + 24}; }
    const std::uint8_t* slot(std::size_t index) const { return ring->data.get() + 24 + index * 300'018; }
    Bytes slot_bytes(std::size_t index, std::size_t payload_size) const {
        return {slot(index), slot(index) + 18 + payload_size};
    }
    std::optional<std::string> width() const { return service->board().run_file("video_width"); }
    std::optional<std::string> height() const { return service->board().run_file("video_height"); }

    static int occurrences(const std::string& text) {
        const std::string errors = service->board().errors();
        int count = 0;
        for (std::size_t at = 0; (at = errors.find(text, at)) != std::string::npos; ++at) {
            ++count;
        }
        return count;
    }

    static Service* service;
    static bool streaming;
    static std::uint16_t published;  // frame numbers used up
    std::optional<sim::SharedMapping> ring;
};

Service* VideoTest::service = nullptr;
bool VideoTest::streaming = false;
std::uint16_t VideoTest::published = 0;

TEST_F(VideoTest, ClearsTheRingForTheFirstFrame) {
    EXPECT_EQ(header()[0], 1);
    EXPECT_TRUE(is_zero(ring->data.get() + 1, ring->data.get() + ring_size));
    EXPECT_EQ(service->board().errors().find("Clear frame shared memory\n"), std::string::npos);
    publish({picture(0)});
    EXPECT_TRUE(service->said("Clear frame shared memory\n"));
    Bytes expected(24);
    expected[4] = 1;
    EXPECT_EQ(header(), expected);
    EXPECT_EQ(slot_bytes(0, picture(0).size()), expected_slot(0, picture(0)));
    EXPECT_TRUE(is_zero(slot(0) + 18 + picture(0).size(), ring->data.get() + ring_size));
}

TEST_F(VideoTest, GoesRoundTheRing) {
    // From an empty ring: 200 frames, the last of which sets the next slot to 0, then half a round more.
    ring->data.get()[0] = 1;
    std::vector<Bytes> pictures;
    for (std::size_t number = 0; number < slot_count; ++number) {
        pictures.push_back(picture(number));
    }
    pictures[7] = Bytes(40'000, 0xA5);
    const std::uint16_t first = published;
    publish(pictures);
    EXPECT_EQ(header()[4], 0);
    for (std::size_t index = 0; index < slot_count; ++index) {
        ASSERT_EQ(slot_bytes(index, pictures[index].size()),
                  expected_slot(static_cast<std::uint16_t>(first + index), pictures[index]))
            << "slot " << index;
    }
    const std::vector<Bytes> more(pictures.rbegin(), pictures.rbegin() + 100);
    publish(more);
    EXPECT_EQ(header()[4], 100);
    for (std::size_t index = 0; index < slot_count; ++index) {
        const Bytes& expected = index < 100 ? more[index] : pictures[index];
        const std::size_t number = first + index + (index < 100 ? slot_count : 0);
        ASSERT_EQ(slot_bytes(index, expected.size()),
                  expected_slot(static_cast<std::uint16_t>(number), expected))
            << "slot " << index;
    }
}

TEST_F(VideoTest, ClearsTheRingWhenAnotherProcessAsks) {
    publish({picture(1), picture(2), picture(3)});
    const int clears = occurrences("Clear frame shared memory\n");
    ring->data.get()[ring_size - 1] = 0x77;
    ring->data.get()[0] = 1;
    publish({picture(4)});
    Bytes expected(24);
    expected[2] = static_cast<std::uint8_t>(published - 1);
    expected[3] = static_cast<std::uint8_t>((published - 1) >> 8);
    expected[4] = 1;
    EXPECT_EQ(header(), expected);
    EXPECT_EQ(slot_bytes(0, picture(4).size()),
              expected_slot(static_cast<std::uint16_t>(published - 1), picture(4)));
    EXPECT_TRUE(is_zero(slot(0) + 18 + picture(4).size(), ring->data.get() + ring_size));
    EXPECT_TRUE(service->said("Clear frame shared memory\n", clears + 1));
    EXPECT_EQ(occurrences("Clear frame shared memory\n"), clears + 1);
}

struct SizeCase {
    const char* what;
    const char* payload;
    const char* width;
    const char* height;
};

// In this order. The parameter sets are those of tests/data/sps.txt, and two with sizes of their own.
const SizeCase size_cases[] = {
    {"a slice", "00 00 00 01 65 640028acd940780227e5c044", nullptr, nullptr},
    {"a parameter set after a three-byte start code", "00 00 01 67 640028acd940780227e5c044", nullptr,
     nullptr},
    {"a parameter set after another unit", "00 00 00 01 09 F0 00 00 00 01 67 640028acd940780227e5c044",
     nullptr, nullptr},
    {"a parameter set cut short", "00 00 00 01 67 640028acd940", nullptr, nullptr},
    {"a unit header alone", "00 00 00 01 67", nullptr, nullptr},
    {"1920x1080", "00 00 00 01 67 640028acd940780227e5c044000003000400000300ca3c60c658", "1920", "1080"},
    {"1920x1080 again", "00 00 00 01 67 640028acd940780227e5c044000003000400000300ca3c60c658", "1920",
     "1080"},
    {"1920x1088 is shown as 1080 lines", "00 00 00 01 67 42c028da01e00899", "1920", "1080"},
    {"1280x720, unit header 27", "00 00 00 01 27 42c01fd9005005bb011000000300100000030328f1832480", "1280",
     "720"},
    {"1280x720 cut short", "00 00 00 01 67 42c01fd90050", "1280", "720"},
    {"1912x1088 is shown as 1920x1080", "00 00 00 01 67 42c028da01e0089e5d", "1920", "1080"},
};

TEST_F(VideoTest, TellsThePictureSizeWhenItChanges) {
    for (const SizeCase& row : size_cases) {
        publish({bytes_from_hex(row.payload)});
        EXPECT_EQ(width(), row.width == nullptr ? std::nullopt : std::optional<std::string>{row.width})
            << row.what;
        EXPECT_EQ(height(), row.height == nullptr ? std::nullopt : std::optional<std::string>{row.height})
            << row.what;
    }
    // The last row changes the size: a line too many would stand before the last one.
    EXPECT_TRUE(service->said("Live stream video resolution changed to 1920x1080\n", 2));
    EXPECT_EQ(occurrences("Live stream video resolution changed to 1280x720\n"), 1);
    EXPECT_EQ(occurrences("Live stream video resolution changed"), 3);
}

// A directory in a file's place: not written, without a word, until the size changes again.
TEST_F(VideoTest, WritesTheSizeAgainAtTheNextChangeWhenItCouldNot) {
    const std::filesystem::path file = service->board().directory() + "/run/video_width";
    const Bytes hd = bytes_from_hex("00 00 00 01 67 42c01fd9005005bb011000000300100000030328f1832480");
    const Bytes full_hd =
        bytes_from_hex("00 00 00 01 67 640028acd940780227e5c044000003000400000300ca3c60c658");
    std::filesystem::remove(file);
    std::filesystem::create_directory(file);
    publish({full_hd, hd, hd});
    EXPECT_EQ(height(), "720");
    std::filesystem::remove(file);
    publish({hd});
    EXPECT_FALSE(std::filesystem::exists(file));
    publish({full_hd});
    EXPECT_EQ(width(), "1920");
    EXPECT_EQ(height(), "1080");
}

// One read brings all of it, so that what is reported does not depend on the frames sent meanwhile.
TEST_F(VideoTest, ReportsWhatIsNoFrame) {
    Bytes bytes = frame(0x4A, {});
    const Bytes unknown = frame(0x4B, {1, 2, 3});
    bytes.insert(bytes.end(), unknown.begin(), unknown.end());
    const Bytes noise = {0x00, 0xCC, 0x4A, 0x57, 0x0C, 0x00};  // what stands for its size is 20
    bytes.insert(bytes.end(), noise.begin(), noise.end());
    bytes.insert(bytes.end(), 14, 0xEE);
    bytes.push_back(0x00);
    ASSERT_TRUE(service->send(bytes));
    const std::string dump =
        "\n\nSOMETHING WRONG: 20 bytes: 0x00,0xCC,0x4A,0x57,0x0C,0x00,0xEE,0xEE,0xEE,0xEE,"
        "0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,0xEE,\n\n\n";
    EXPECT_TRUE(service->said("Queue part len is zero\n\n\nUnknown type 0x4B\n\n" + dump));
    publish({picture(5)});
}

TEST_F(VideoTest, FindsTheStreamAgainAfterNoise) {
    ASSERT_TRUE(service->send(Bytes(60'000, 0xFF)));
    EXPECT_TRUE(service->said("Buffer overflowed\n"));
    publish({picture(6), picture(7)});
    EXPECT_EQ(slot_bytes((header()[4] + 199U) % 200, picture(7).size()),
              expected_slot(static_cast<std::uint16_t>(published - 1), picture(7)));
}

// What an earlier run, or somebody else, left: longer objects full of other things, and sizes of another
// video.
TEST(VideoStart, TakesOverWhatIsThere) {
    Service service;
    service.board().kill();
    for (const char* name : {ring_name, transcoding_name}) {
        const sim::SharedMapping left = service.board().create_shared_memory(name, 61'000'000);
        std::memset(left.data.get(), 0x5A, left.size);
    }
    std::ofstream{service.board().directory() + "/run/video_width"} << "640";
    std::ofstream{service.board().directory() + "/run/video_height"} << "480";
    service.start();
    service.enumerate();
    const std::string said = service.board().errors();
    EXPECT_NE(said.find("Init telemetry buffer\nInit frame buffer 60003624 bytes\n"
                        "Init frame buffer for transcoding 13003624 bytes\n"),
              std::string::npos)
        << said;
    for (const auto& [name, size] :
         {std::pair{ring_name, ring_size}, std::pair{transcoding_name, transcoding_size}}) {
        const std::optional<sim::SharedMapping> object = service.board().shared_memory(name);
        ASSERT_TRUE(object);
        ASSERT_EQ(object->size, size);
        EXPECT_EQ(object->data.get()[0], 1);
        EXPECT_TRUE(is_zero(object->data.get() + 1, object->data.get() + size)) << name;
    }
    EXPECT_FALSE(service.board().run_file("video_width"));
    EXPECT_FALSE(service.board().run_file("video_height"));
}

TEST(VideoStart, EndsWhereTheMemoryCannotBeHad) {
    const std::pair<const char*, bool> faults[] = {{"shm_open.ardenvue_framebuffer", false},
                                                   {"shm_space.ardenvue_framebuffer", false},
                                                   {"shm_open.ardenvue_framebuffer_transcoding", true},
                                                   {"shm_space.ardenvue_framebuffer_transcoding", true}};
    for (const auto& [fault, reaches_transcoding] : faults) {
        Service service{{.faults = {fault}}};
        EXPECT_EQ(service.end_code(), 2) << fault;
        const std::string said = service.board().errors();
        const std::string object = std::string{fault}.substr(std::string_view{fault}.find('.') + 1);
        EXPECT_THAT(said, testing::HasSubstr("bytes\nShared memory " + object + " can't be had: "));
        EXPECT_THAT(said, testing::EndsWith("\nFailed to init telemetry buffer\n"));
        EXPECT_EQ(said.find("transcoding 13003624") != std::string::npos, reaches_transcoding) << fault;
    }
}

}  // namespace
