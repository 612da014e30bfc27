// The words of ardenvue-ctl, from end to end: what the camera gets, and what the state shows then.
#include "tests/blackbox/ctl_stage.h"

namespace {

using namespace ctl_stage;

// Sequences of commands that are sent beside each other: within one, each waits for the one before.
std::vector<std::vector<std::string>> all_words() {
    std::vector<std::vector<std::string>> lanes = {
        {"camera mode video", "camera mode photo", "record start", "record stop", "shot", "camera mode video",
         "shot"},
        {"position selfie", "position normal", "position selfie", "orientation lock", "orientation unlock",
         "position normal", "position normal"},
        {"focus point 0 1", "focus point 1 0", "focus point 0.25 0.75"},
        {"focus manual 0", "focus manual 33", "focus manual 100"},
        {"aperture 2.8", "aperture 4", "aperture 6.3", "aperture 11"},
        {"wb auto", "wb sunny", "wb cloudy", "wb incandescent", "wb neon", "wb custom 2000", "wb custom 5650",
         "wb custom 10000"},
        {"",
         "",
         "",
         "",
         "",
         "",
         "",
         "",
         "video_transmission Regular",
         "video_transmission HD",
         "video_transmission Smooth",
         "horizont calibrate",
         "gimbal mode tiltlocked",
         "gimbal mode fpv",
         "gimbal mode follow",
         "gimbal follow slow",
         "gimbal follow fast",
         "set movement abs",
         "set movement rel",
         "format sd"},
    };
    for (const ctl::CommandRow& row : ctl::command_rows()) {
        const bool in_a_lane = row.words == "wb" || row.words == "camera mode" || row.shown == nullptr;
        if (in_a_lane || row.arguments.size() != 1) {
            continue;
        }
        std::vector<std::string> lane;
        for (const ctl::Choice& choice : row.arguments.front().choices) {
            lane.push_back(std::string{row.words} + " " + std::string{choice.word});
        }
        lanes.push_back(lane);
    }
    return lanes;
}

// Every word that the client knows, and no other, is known to the service and means the same to the camera.
// One command of each sequence goes out at a time, since the state comes once a second.
TEST_F(Ctl, EveryWordIsUnderstoodFromEndToEnd) {
    ctl::ServiceLink link;
    ASSERT_EQ(link.open("127.0.0.1", stage().port()), ctl::done) << link.problem();
    ctl::CameraView view;
    const auto lanes = all_words();
    std::size_t rounds = 0;
    for (const auto& lane : lanes) {
        rounds = std::max(rounds, lane.size());
    }
    while (!view.line) {
        ASSERT_TRUE(link.wait(view, ctl::Clock::now() + patience));
    }
    for (std::size_t round = 0; round < rounds; ++round) {
        std::vector<ctl::Command> waiting;
        link.drain(view);
        const ctl::CameraView before = view;
        const auto sent = ctl::Clock::now();
        for (const auto& lane : lanes) {
            if (round >= lane.size() || lane[round].empty()) {
                continue;
            }
            const ctl::ParsedCommand parsed = ctl::parse_command(lane[round]);
            ASSERT_EQ(parsed.problem, "");
            ASSERT_TRUE(link.send_command(parsed.command.json));
            if (parsed.command.row->shown != nullptr) {
                waiting.push_back(parsed.command);
            }
        }
        const auto shown = [&](const ctl::Command& command) {
            return command.row->shown(before, view.since(sent), command);
        };
        while (!waiting.empty() && link.wait(view, sent + patience)) {
            std::erase_if(waiting, shown);
        }
        for (const ctl::Command& command : waiting) {
            ADD_FAILURE() << command.words << " was not shown";
        }
    }
    ASSERT_TRUE(link.send_command(R"({"cmd":"resetcamera"})"));
    for (const char* meaning :
         {"transmission regular", "transmission hd", "transmission smooth", "gimbal calibration 3",
          "gimbal first-person", "gimbal follow", "gimbal tilt locked", "gimbal follow speed slow",
          "gimbal follow speed fast", "format card", "reset"}) {
        EXPECT_TRUE(stage().camera_got(meaning)) << meaning;
    }
}

}  // namespace
