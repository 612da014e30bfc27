#include "state/camera_decode.h"

#include <array>
#include <bit>
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/little_endian.h"
#include "state/camera_state.h"
#include "state/telemetry.h"

namespace {

int opened = 0;
bool shared_record_fails = false;
ardenvue::CameraState shared_record{};

}  // namespace

// Takes the place of the shared-memory object.
ardenvue::CameraState* open_camera_state() {
    ++opened;
    return shared_record_fails ? nullptr : &shared_record;
}

namespace {

using Bytes = std::vector<std::uint8_t>;

struct Field {
    std::size_t payload_byte;
    Bytes bytes;
};

// A packet of that length with zeros but for the given payload fields. The sums are checked before the
// decoder.
Bytes push(std::uint8_t length, std::uint8_t type, std::uint8_t set, std::uint8_t id,
           const std::vector<Field>& fields) {
    Bytes packet(length);
    packet[0] = 0x55;
    packet[1] = length;
    packet[8] = type;
    packet[9] = set;
    packet[10] = id;
    for (const Field& field : fields) {
        std::copy(field.bytes.begin(), field.bytes.end(),
                  packet.begin() + static_cast<std::ptrdiff_t>(11 + field.payload_byte));
    }
    return packet;
}

Bytes camera_status(const std::vector<Field>& fields) {
    return push(53, 0x00, 0x02, 0x80, fields);
}

Bytes camera_parameters(const std::vector<Field>& fields) {
    return push(106, 0x00, 0x02, 0x81, fields);
}

class CameraDecodeTest : public testing::Test {
  protected:
    CameraDecodeTest() { clear_telemetry_state(); }
    TelemetryState& state = get_telemetry_state();
};

// Runs first: the record is opened once in the life of the process.
TEST_F(CameraDecodeTest, OpensTheSharedRecordWithTheFirstPacketAndOnce) {
    shared_record_fails = true;
    decode_camera_packet({});
    decode_camera_packet(Bytes{0x55, 9, 4, 0, 0, 0, 0, 0, 0});
    decode_camera_packet(Bytes{0x54, 10, 4, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(opened, 0);
    decode_camera_packet(Bytes{0x55, 10, 4, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(opened, 1);
    decode_camera_packet(push(31, 0x00, 0x04, 0x05, {{0, {1, 0, 2, 0, 3, 0}}}));
    EXPECT_EQ(opened, 1);
    EXPECT_EQ(state.attitude[0], 3);
}

struct NotAPush {
    const char* what;
    Bytes packet;
};

// Each is a push but for one thing; all bytes of the payload are ones.
const std::vector<Field> ones = {{0, Bytes(18, 0xFF)}};
const NotAPush not_pushes[] = {
    {"attitude of another type", push(31, 0x20, 0x04, 0x05, ones)},
    {"attitude of another set", push(31, 0x00, 0x05, 0x05, ones)},
    {"attitude of another id", push(31, 0x00, 0x04, 0x04, ones)},
    {"attitude of another length", push(32, 0x00, 0x04, 0x05, ones)},
    {"battery of another type", push(44, 0x40, 0x0D, 0x02, ones)},
    {"battery of another set", push(44, 0x00, 0x0C, 0x02, ones)},
    {"battery of another id", push(44, 0x00, 0x0D, 0x03, ones)},
    {"status of another type", push(53, 0x40, 0x02, 0x80, ones)},
    {"status of another set", push(53, 0x00, 0x03, 0x80, ones)},
    {"status of another id", push(53, 0x00, 0x02, 0x81, ones)},
    {"focus of another type", push(54, 0x40, 0x02, 0x80, ones)},
    {"focus of another set", push(58, 0x00, 0x03, 0x80, ones)},
    {"focus of a length between", push(56, 0x00, 0x02, 0x80, ones)},
    {"parameters of another type", push(106, 0x40, 0x02, 0x81, ones)},
    {"parameters of another set", push(107, 0x00, 0x03, 0x81, ones)},
    {"parameters of another id", push(107, 0x00, 0x02, 0x80, ones)},
    {"parameters of another length", push(105, 0x00, 0x02, 0x81, ones)},
    {"a long packet",
     [] {
         Bytes packet = push(248, 0x00, 0x02, 0x81, ones);
         packet.resize(1016);
         return packet;
     }()},
};

using RecordBytes = std::array<std::uint8_t, sizeof(TelemetryState)>;

TEST_F(CameraDecodeTest, ChangesNothingForWhatIsNoPush) {
    const auto before = std::bit_cast<RecordBytes>(state);
    for (const NotAPush& row : not_pushes) {
        decode_camera_packet(row.packet);
        EXPECT_EQ(std::bit_cast<RecordBytes>(state), before) << row.what;
    }
}

// The field of the power push that no report shows; whatever its command, until the battery resets it.
TEST_F(CameraDecodeTest, KeepsWhatElseThePowerPushSays) {
    decode_camera_packet(push(48, 0x40, 0x77, 0x66, {{0, {0x9C, 0x34, 0x12}}, {14, {0xCD, 0xAB}}}));
    EXPECT_EQ(state.power_aux, 0xABCD);
    decode_camera_packet(push(44, 0x00, 0x0D, 0x02, {}));
    EXPECT_EQ(state.power_aux, 0);
}

TEST_F(CameraDecodeTest, CopiesTheFocusPointBitForBit) {
    const Bytes quiet_nan_with_payload = {0x34, 0x12, 0xC0, 0x7F};
    const Bytes minus_zero = {0x00, 0x00, 0x00, 0x80};
    for (const std::uint8_t length : {std::uint8_t{54}, std::uint8_t{58}}) {
        clear_telemetry_state();
        decode_camera_packet(push(length, 0x00, 0x02, 0x33,
                                  {{0, {0xA5, 0xE8, 0x03, 0xFA, 0x00}},
                                   {13, quiet_nan_with_payload},
                                   {17, minus_zero},
                                   {21, {7}},
                                   {31, {8}}}));
        EXPECT_EQ(std::bit_cast<std::uint32_t>(state.focus_point_x), 0x7FC01234U);
        EXPECT_EQ(std::bit_cast<std::uint32_t>(state.focus_point_y), 0x80000000U);
        EXPECT_EQ(state.focus_max, 1000);
        EXPECT_EQ(state.focus_position, 250);
        EXPECT_EQ(state.focus_percent, 25.0F);
        EXPECT_EQ(state.focus_aux_1, 7);
        EXPECT_EQ(state.focus_aux_2, 8);
        EXPECT_STREQ(state.focus_mode_text, "AFS");
    }
}

// Texts longer than their field are cut and don't reach the next one.
TEST_F(CameraDecodeTest, CutsTextsToTheirFields) {
    decode_camera_packet(camera_status({{33, {5}}}));
    EXPECT_STREQ(state.camera_model, "Unknown device id 5");
    decode_camera_packet(camera_status({{4, {0x5A}}, {33, {255}}}));
    EXPECT_STREQ(state.camera_model, "Unknown device id 2");
    EXPECT_EQ(state.camera_mode, 0x5A);
    decode_camera_packet(camera_parameters({{2, {0xFF, 0xFF, 0xFF}}, {40, {0xFF, 0xFF, 0xFF}}}));
    EXPECT_STREQ(state.shutter_set_text, "1/32767.2");
    EXPECT_STREQ(state.shutter_text, "1/32767.255");
    EXPECT_EQ(state.shutter_set, 0xFFFFFFU);
}

TEST_F(CameraDecodeTest, WritesDurationsOfAnyLength) {
    const std::pair<std::uint32_t, const char*> durations[] = {
        {0, "00:00:00"},       {59, "00:00:59"},       {60, "00:01:00"},
        {3'725, "01:02:05"},   {35'999, "09:59:59"},   {36'000, "10:00:00"},
        {359'999, "99:59:59"}, {360'000, "100:00:00"}, {4'294'967'295, "1193046:28:15"}};
    for (const auto& [seconds, text] : durations) {
        Bytes left(4);
        store_le32(left.data(), seconds);
        decode_camera_packet(camera_status({{17, left}, {29, {left[0], left[1]}}}));
        EXPECT_STREQ(state.record_left_text, text);
        EXPECT_EQ(state.record_left_seconds, seconds);
        EXPECT_EQ(state.record_seconds, seconds % 65'536);
    }
}

// As printf's "%1.1fG" of a single-precision figure, "%1.0f" and "%1.1f" of a double write them.
TEST_F(CameraDecodeTest, RoundsCapacityAndApertureAsPrintfDoes) {
    for (std::uint32_t aperture = 0; aperture <= 0xFFFF; ++aperture) {
        const double f_number = aperture * 0.01;
        char expected[24];
        std::snprintf(expected, sizeof expected, f_number == static_cast<int>(f_number) ? "%1.0f" : "%1.1f",
                      f_number);
        Bytes bytes(4);
        store_le32(bytes.data(), aperture);
        decode_camera_packet(camera_parameters({{38, {bytes[0], bytes[1]}}}));
        ASSERT_STREQ(state.aperture_text, expected) << aperture;

        const std::uint32_t capacity = aperture * 65'521 + 1;
        std::snprintf(expected, sizeof expected, "%1.1fG",
                      static_cast<double>(static_cast<float>(capacity) * 0.001F));
        store_le32(bytes.data(), capacity);
        decode_camera_packet(camera_status({{9, bytes}}));
        ASSERT_STREQ(state.sd_text, expected) << capacity;
    }
    decode_camera_packet(camera_status({}));
    EXPECT_STREQ(state.sd_text, "");
}

TEST_F(CameraDecodeTest, LeavesAShutterTextWhoseCodeSaysNothing) {
    decode_camera_packet(camera_parameters({{2, {2, 0, 5}}, {40, {0xF4, 0x81, 0}}}));
    EXPECT_STREQ(state.shutter_set_text, "2.5\"");
    EXPECT_STREQ(state.shutter_text, "1/500");
    decode_camera_packet(camera_parameters({{2, {2, 0x40, 5}}, {40, {0xF4, 0x7F, 0}}}));
    EXPECT_STREQ(state.shutter_set_text, "2.5\"");
    EXPECT_STREQ(state.shutter_text, "1/500");
    EXPECT_EQ(state.shutter_set, 0x054002U);
    decode_camera_packet(push(107, 0x00, 0x02, 0x81, {}));
    EXPECT_STREQ(state.shutter_set_text, "0\"");
    EXPECT_STREQ(state.shutter_text, "0\"");
}

}  // namespace
