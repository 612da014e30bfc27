// The words of the library, from end to end: what the camera gets, and what the state shows then.
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
    for (std::size_t i = 0; const char* name = ardenvue_command_name(i); ++i) {
        ArdenvueCommand command;
        const char* choice = ardenvue_command_choice(name, 0);
        const std::string words = std::string{name} + " " + (choice == nullptr ? "" : choice);
        ardenvue_command_check(words.c_str(), &command, nullptr, 0);
        const bool in_a_lane = command.name == std::string{"wb"} ||
                               command.name == std::string{"camera mode"} || command.reported_in[0] == '\0';
        if (choice == nullptr || in_a_lane) {
            continue;
        }
        lanes.emplace_back();
        for (std::size_t at = 0; (choice = ardenvue_command_choice(name, at)) != nullptr; ++at) {
            lanes.back().push_back(std::string{name} + " " + choice);
        }
    }
    return lanes;
}

// Every word that the library knows, and no other, is known to the service and means the same to the camera.
// One command of each sequence goes out at a time, since the state comes once a second.
TEST_F(Ctl, EveryWordIsUnderstoodFromEndToEnd) {
    ctl::BoardOptions board;
    board.status_port = stage().port();
    ctl::Link link;
    ASSERT_EQ(ctl::open_link(board, link), ctl::done);
    const auto lanes = all_words();
    std::size_t rounds = 0;
    for (const auto& lane : lanes) {
        rounds = std::max(rounds, lane.size());
    }
    const int limit = static_cast<int>(patience.count());
    ASSERT_GT(ardenvue_link_wait(link.get(), ARDENVUE_STATUS_LINE, limit), 0);
    for (std::size_t round = 0; round < rounds; ++round) {
        std::vector<std::pair<int, std::string>> sent;
        for (const auto& lane : lanes) {
            if (round < lane.size() && !lane[round].empty()) {
                sent.emplace_back(ardenvue_send(link.get(), lane[round].c_str()), lane[round]);
                ASSERT_GT(sent.back().first, 0) << ardenvue_link_problem(link.get());
            }
        }
        for (const auto& [number, words] : sent) {
            const int code = ardenvue_confirm(link.get(), number, limit);
            EXPECT_TRUE(code > 0 || code == ARDENVUE_ERROR_NOT_REPORTED) << words << " was not shown";
        }
    }
    ASSERT_GT(ardenvue_reset_camera(link.get()), 0);
    for (const char* meaning :
         {"transmission regular", "transmission hd", "transmission smooth", "gimbal calibration 3",
          "gimbal first-person", "gimbal follow", "gimbal tilt locked", "gimbal follow speed slow",
          "gimbal follow speed fast", "format card", "reset"}) {
        EXPECT_TRUE(stage().camera_got(meaning)) << meaning;
    }
}

}  // namespace
