// What arrives on the client's status port. Each report that is accepted is put together again from what was
// taken out of it and must be the datagram that came; what looks like one of ours must be accepted.
#include <cctype>

#include "ardenvue.h"
#include "ctl/reports.h"
#include "fuzz.h"

namespace {

std::string put_together(const ctl::StatusLine& line) {
    std::string text = "\x07";
    for (const auto& [key, value] : line.pairs) {
        text += key + "=" + value + ",";
    }
    for (const ctl::StatusKey& key : ctl::status_keys()) {
        fuzz::require(text.find("," + std::string{key.name} + "=") != std::string::npos ||
                          text.find(std::string{key.name} + "=") == 1,
                      "a key is missing");
    }
    return text;
}

std::string low_high(int number) {
    return {static_cast<char>(number), static_cast<char>(number >> 8)};
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string datagram(data, data + size);
    const ctl::Report report = ctl::parse_report({data, size});
    ctl::CameraView view;
    view.take(ctl::Report{report}, ctl::Clock::time_point{std::chrono::seconds{1}});
    const auto is_record = [&](char subtype, std::size_t length) {
        return size == length && datagram[0] == 6 && datagram[1] == subtype;
    };
    fuzz::require(view.gimbal_focus.has_value() == is_record(0, 28), "gimbal and focus record");
    fuzz::require(view.histogram.has_value() == is_record(1, 66), "histogram record");
    if (view.line) {
        fuzz::require(put_together(*view.line) == datagram, "status line");
        fuzz::require(std::all_of(datagram.begin() + 1, datagram.end(),
                                  [](unsigned char c) { return c < 0x7F && c >= 0x20; }),
                      "a character that is not for a terminal");
    } else if (view.histogram) {
        fuzz::require(std::equal(data + 2, data + size, view.histogram->bins.begin()), "bins");
    } else if (view.gimbal_focus) {
        const ctl::GimbalFocus& record = *view.gimbal_focus;
        std::string fields;
        for (const std::int16_t angle : record.attitude) {
            fields += low_high(angle);
        }
        fuzz::require(datagram.compare(3, 6, fields) == 0, "attitude");
        fields = low_high(record.focus_max) + low_high(record.focus_position) +
                 low_high(static_cast<int>(record.focus_point_x * 1000 + 0.5)) +
                 low_high(static_cast<int>(record.focus_point_y * 1000 + 0.5));
        fuzz::require(datagram.compare(15, 8, fields) == 0, "focus");
        fuzz::require(record.recording == ((data[9] & 0xC0) == 0x80), "recording");
        fuzz::require(record.orientation_lock == (data[2] != 0) && record.focus_valid == (data[12] != 0),
                      "flags");
    }
    return 0;
}
