// Commands of the library: what each becomes, by words and by typed functions, what is said of words that are
// none, and what counts as confirmed.
#include <cmath>
#include <functional>
#include <set>

#include "tests/unit/client_link.h"

namespace {

using namespace client_link;

struct Row {
    const char* words;
    const char* json;
};

// One or more of every command, as the service expects them.
const Row rows[] = {
    {"record start", R"({"cmd":"record","param":"start"})"},
    {"record stop", R"({"cmd":"record","param":"stop"})"},
    {"shot", R"({"cmd":"shot"})"},
    {"camera mode photo", R"({"cmd":"camera","param":"mode","value":"photo"})"},
    {"position normal", R"({"cmd":"position","param":"normal"})"},
    {"position selfie", R"({"cmd":"position","param":"selfie"})"},
    {"orientation lock", R"({"cmd":"orientation","param":"lock"})"},
    {"orientation unlock", R"({"cmd":"orientation","param":"unlock"})"},
    {"focus type afc", R"({"cmd":"focus","param":"type","value":"afc"})"},
    {"focus point 0.25 0.75", R"({"cmd":"focus","param":"point","value":"0.25","value2":"0.75"})"},
    {"focus manual 33", R"({"cmd":"focus","param":"manual","value":"33"})"},
    {"video_mode manual", R"({"cmd":"video_mode","param":"manual"})"},
    {"shutter 1/8000", R"({"cmd":"shutter","param":"1/8000"})"},
    {"shutter 2.5\"", R"({"cmd":"shutter","param":"2.5\""})"},
    {"shutter 30", R"({"cmd":"shutter","param":"30\""})"},
    {"aperture 2.8", R"({"cmd":"aperture","param":"2.8"})"},
    {"iso 6400", R"({"cmd":"iso","param":"6400"})"},
    {"iso auto", R"({"cmd":"iso","param":"auto"})"},
    {"ev -0.3", R"({"cmd":"ev","param":"-0.3"})"},
    {"ev +2.70", R"({"cmd":"ev","param":"2.7"})"},
    {"ev 0", R"({"cmd":"ev","param":"0.0"})"},
    {"wb neon", R"({"cmd":"wb","param":"neon"})"},
    {"wb custom 5600", R"({"cmd":"wb","param":"custom","value":"5600"})"},
    {"color  black   white", R"({"cmd":"color","param":"black white"})"},
    {"video_resolution 1920x1080@120", R"({"cmd":"video_resolution","param":"1920x1080@120"})"},
    {"video_transmission HD", R"({"cmd":"video_transmission","param":"HD"})"},
    {"video_aspect 16:9", R"({"cmd":"video_aspect","param":"16:9"})"},
    {"shotmode jpg+raw", R"({"cmd":"shotmode","param":"jpg+raw"})"},
    {"antiflicker 50", R"({"cmd":"antiflicker","param":"50"})"},
    {"video_std NTSC", R"({"cmd":"video_std","param":"NTSC"})"},
    {"horizont calibrate", R"({"cmd":"horizont","param":"calibrate"})"},
    {"resetcamera", R"({"cmd":"resetcamera"})"},
    {"format sd", R"({"cmd":"format","param":"sd"})"},
    {"histogram 1", R"({"cmd":"histogram","param":"1"})"},
    {"gimbal mode fpv", R"({"cmd":"gimbal","param":"mode","value":"fpv"})"},
    {"gimbal follow slow", R"({"cmd":"gimbal","param":"follow","value":"slow"})"},
    {"set movement abs", R"({"cmd":"set","name":"movement","value":"abs"})"},
};

TEST(ClientCommands, EveryCommandBecomesItsObject) {
    std::set<std::string> met;
    for (const Row& row : rows) {
        ArdenvueCommand command;
        char reason[ARDENVUE_REASON_SIZE];
        EXPECT_EQ(ardenvue_command_check(row.words, &command, reason, sizeof reason), 0) << reason;
        EXPECT_STREQ(command.json, row.json);
        met.insert(command.name);
    }
    std::set<std::string> known;
    while (const char* name = ardenvue_command_name(known.size())) {
        known.insert(name);
    }
    EXPECT_EQ(met, known);
    EXPECT_STREQ(ardenvue_command_choice("iso", 1), "100");
    EXPECT_EQ(ardenvue_command_choice("iso", 8), nullptr);
    EXPECT_EQ(ardenvue_command_choice("aperture", 0), nullptr);
}

// The object that a typed call sends; empty for one that sends nothing.
std::string sent_by(const std::function<int(ArdenvueLink*)>& call) {
    Sender service;
    ArdenvueLink* opened = nullptr;
    ardenvue_link_open_unbound(&opened, service.name().c_str(), nullptr, 0);
    const Link link{opened, ardenvue_link_close};
    const int code = call(link.get());
    std::string datagram = service.receive();
    EXPECT_EQ(code > 0, !datagram.empty());
    EXPECT_TRUE(code > 0 || (code == ARDENVUE_ERROR_COMMAND && *ardenvue_link_problem(link.get()) != 0))
        << code;
    return datagram;
}

TEST(ClientCommands, TypedCommandsSayTheSame) {
    using L = ArdenvueLink;
    const struct {
        const char* words;
        std::function<int(L*)> call;
    } cases[] = {
        {"record start", ardenvue_start_recording},
        {"record stop", ardenvue_stop_recording},
        {"shot", ardenvue_take_photo},
        {"camera mode video", [](L* l) { return ardenvue_set_camera_mode(l, ARDENVUE_MODE_VIDEO); }},
        {"shotmode jpg+raw", [](L* l) { return ardenvue_set_photo_format(l, ARDENVUE_PHOTO_JPG_RAW); }},
        {"video_aspect 16:9", [](L* l) { return ardenvue_set_photo_ratio(l, ARDENVUE_RATIO_16_9); }},
        {"video_resolution 1920x1080@96", [](L* l) { return ardenvue_set_video_format(l, 1920, 1080, 96); }},
        {"video_std NTSC", [](L* l) { return ardenvue_set_video_standard(l, ARDENVUE_STANDARD_NTSC); }},
        {"video_transmission Smooth",
         [](L* l) { return ardenvue_set_transmission(l, ARDENVUE_TRANSMISSION_SMOOTH); }},
        {"resetcamera", ardenvue_reset_camera},
        {"format sd", ardenvue_format_card},
        {"video_mode manual", [](L* l) { return ardenvue_set_exposure_program(l, ARDENVUE_PROGRAM_MANUAL); }},
        {"shutter 1/500", [](L* l) { return ardenvue_set_shutter(l, 0.002); }},
        {"shutter 1/1.67", [](L* l) { return ardenvue_set_shutter(l, 1 / 1.67); }},
        {"shutter 2.5\"", [](L* l) { return ardenvue_set_shutter(l, 2.5F); }},
        {"aperture 2.80", [](L* l) { return ardenvue_set_aperture(l, static_cast<double>(2.8F)); }},
        {"iso auto", [](L* l) { return ardenvue_set_iso(l, 0); }},
        {"iso 6400", [](L* l) { return ardenvue_set_iso(l, 6400); }},
        {"ev -0.3", [](L* l) { return ardenvue_set_ev(l, -1.0 / 3); }},
        {"ev 0.0", [](L* l) { return ardenvue_set_ev(l, -0.0); }},
        {"wb neon", [](L* l) { return ardenvue_set_white_balance(l, ARDENVUE_WB_NEON); }},
        {"wb custom 5600", [](L* l) { return ardenvue_set_white_balance_kelvin(l, 5600); }},
        {"color blockbuster", [](L* l) { return ardenvue_set_color(l, ARDENVUE_COLOR_BLOCKBUSTER); }},
        {"antiflicker 60", [](L* l) { return ardenvue_set_antiflicker(l, ARDENVUE_ANTIFLICKER_60_HZ); }},
        {"histogram 0", [](L* l) { return ardenvue_set_histogram(l, false); }},
        {"focus type afc", [](L* l) { return ardenvue_set_focus_type(l, ARDENVUE_FOCUS_AFC); }},
        {"focus point 0.2500 1.0000", [](L* l) { return ardenvue_set_focus_point(l, 0.25, 1); }},
        {"focus manual 33", [](L* l) { return ardenvue_set_focus_position(l, 33); }},
        {"position normal", ardenvue_face_ahead},
        {"position selfie", ardenvue_face_back},
        {"orientation unlock", [](L* l) { return ardenvue_lock_orientation(l, false); }},
        {"gimbal mode follow", [](L* l) { return ardenvue_set_gimbal_mode(l, ARDENVUE_GIMBAL_FOLLOW); }},
        {"gimbal follow fast", [](L* l) { return ardenvue_set_follow_speed(l, ARDENVUE_FOLLOW_FAST); }},
        {"horizont calibrate", ardenvue_calibrate_horizon},
        {"set movement abs", [](L* l) { return ardenvue_set_movement(l, ARDENVUE_MOVEMENT_ABSOLUTE); }},
    };
    std::set<std::string> met;
    for (const auto& c : cases) {
        ArdenvueCommand command;
        ASSERT_EQ(ardenvue_command_check(c.words, &command, nullptr, 0), 0) << c.words;
        EXPECT_EQ(sent_by(c.call), "!" + std::string{command.json});
        met.insert(command.name);
    }
    EXPECT_EQ(ardenvue_command_name(met.size() + 1), nullptr) << "a command without a typed function";

    const std::function<int(L*)> wrong[] = {
        [](L* l) { return ardenvue_set_camera_mode(l, ARDENVUE_MODE_PLAYBACK); },
        [](L* l) { return ardenvue_set_white_balance(l, ARDENVUE_WB_CUSTOM); },
        [](L* l) { return ardenvue_set_color(l, ArdenvueColor{}); },
        [](L* l) { return ardenvue_set_iso(l, 450); },
        [](L* l) { return ardenvue_set_shutter(l, 1.0 / 70); },
        [](L* l) { return ardenvue_set_shutter(l, NAN); },
        [](L* l) { return ardenvue_set_aperture(l, 1e30); },
        [](L* l) { return ardenvue_set_ev(l, 0.5); },
        [](L* l) { return ardenvue_set_focus_point(l, 0.5, 1.001); },
        [](L* l) { return ardenvue_set_focus_point(l, NAN, 0); },
        [](L* l) { return ardenvue_set_video_format(l, 4096, 2160, 120); },
        [](L* l) { return ardenvue_send_json(l, "[1]"); },
        [](L* l) { return ardenvue_send_json(l, ("{\"a\":\"" + std::string(10'000, 'x') + "\"}").c_str()); },
        [](L* l) { return ardenvue_send(l, ""); },
    };
    for (const auto& call : wrong) {
        EXPECT_EQ(sent_by(call), "");
    }
}

TEST(ClientCommands, WrongWordsAreExplained) {
    const struct {
        const char* words;
        const char* said_of_it;
    } cases[] = {
        {"", "command is missing. Known: record, shot, camera,"},
        {"recrd start", "unknown command \"recrd\": did you mean \"record\"?"},
        {"xylophone", "unknown command \"xylophone\". Known:"},
        {"record", "record word is missing. Known: start, stop"},
        {"record strat", "did you mean \"start\"?"},
        {"Record start", "did you mean \"record\"?"},
        {"record start now", "\"now\" is too much: the command is \"record start\""},
        {"iso", "iso ISO is missing. Known: auto, 100,"},
        {"iso 500", "unknown iso ISO \"500\": did you mean \"400\"? Known: auto, 100, 200,"},
        {"iso 400 800", "unknown iso ISO \"400 800\""},
        {"shutter 1/70", "did you mean \"1/80\"?"},
        {"wb custm", "did you mean \"custom\"?"},
        {"wb custom", "wb custom KELVIN is a whole number from 2000 to 10000"},
        {"wb custom 1900", "not \"1900\""},
        {"wb custom 1e4", "not \"1e4\""},
        {"focus point 0.5", "focus point Y is a number from 0 to 1"},
        {"focus point 0.5 nan", "not \"nan\""},
        {"focus point 0.5 1.5", "not \"1.5\""},
        {"focus point 1/2 0.5", "not \"1/2\""},
        {"focus manual 101", "focus manual PERCENT is a whole number from 0 to 100, not \"101\""},
        {"aperture 0x10", "not \"0x10\""},
        {"video_resolution 4096x2160@120", "did you mean \"4096x2160@"},
        {"set movement absolute", "Known: abs, rel"},
    };
    ArdenvueCommand command;
    char reason[ARDENVUE_REASON_SIZE];
    for (const auto& c : cases) {
        EXPECT_EQ(ardenvue_command_check(c.words, &command, reason, sizeof reason), ARDENVUE_ERROR_COMMAND);
        EXPECT_THAT(reason, testing::HasSubstr(c.said_of_it)) << c.words;
    }
    EXPECT_EQ(ardenvue_command_check(std::string(100'000, 'x').c_str(), &command, reason, sizeof reason),
              ARDENVUE_ERROR_COMMAND);
    EXPECT_THAT(reason, testing::StartsWith("unknown command"));
}

// What ardenvue_confirm says after the reports that came before the command and behind it.
int confirmed(const char* words, const std::vector<std::string>& before,
              const std::vector<std::string>& behind) {
    Sender service;
    ArdenvueLink* opened = nullptr;
    ardenvue_link_open_unbound(&opened, service.name().c_str(), nullptr, 0);
    const Link link{opened, ardenvue_link_close};
    for (const std::string& report : before) {
        take(link, report);
    }
    const int command = ardenvue_send(link.get(), words);
    EXPECT_GT(command, 0) << words;
    for (const std::string& report : behind) {
        take(link, report);
    }
    return ardenvue_confirm(link.get(), command, 0);
}

// The edges of what counts as shown; that each command is shown at all is tested with the service.
TEST(ClientCommands, AReportConfirmsWhatItShowsAndTellsWhatWasThereBefore) {
    const auto with = [](const char* key, const char* value) {
        const std::string pair = std::string{","} + key + "=";
        const std::string line = line_with();
        const std::size_t at = line.find(pair) + pair.size();
        return std::string{line}.replace(at, line.find(',', at) - at, value);
    };
    const std::string idle = line_with();
    const struct {
        const char* words;
        std::string report;
        bool shown;
    } cases[] = {
        {"iso 400", with("iso_set", "400"), true},
        {"iso 800", with("iso", "800"), false},
        {"ev 0.7", with("ev", "+0.7"), true},
        {"ev 0.0", with("ev", "0"), true},
        {"shotmode raw", with("shot_mode", "RAW"), true},
        {"shotmode jpg", with("shot_mode", "JPG+RAW"), false},
        {"antiflicker 60", with("antiflicker", "60 Hz"), true},
        {"aperture 11", with("aperture", "11"), true},
        {"aperture 6.3", with("aperture", "6.3"), true},
        {"aperture 6.3", with("aperture", "5.6"), false},
        {"aperture 6.3", with("aperture", ""), false},
        {"shot", with("shots_left", "1233"), true},
        {"shot", with("shots_left", "1234"), false},
        {"wb custom 6000", with("wb_temp", "6000"), true},
    };
    for (const auto& c : cases) {
        const int code = confirmed(c.words, {idle}, {c.report});
        EXPECT_TRUE(c.shown ? code == ARDENVUE_CAME : code == ARDENVUE_ERROR_TIMEOUT) << c.words << code;
    }
    EXPECT_EQ(confirmed("iso auto", {idle}, {}), ARDENVUE_ERROR_TIMEOUT) << "nothing came after it";
    EXPECT_EQ(confirmed("iso auto", {idle}, {idle}), ARDENVUE_WAS_THERE);
    EXPECT_EQ(confirmed("iso auto", {}, {idle}), ARDENVUE_SHOWN);
    EXPECT_EQ(confirmed("shot", {}, {idle, with("shots_left", "1233")}), ARDENVUE_ERROR_TIMEOUT);
    EXPECT_EQ(confirmed("iso 400", {idle}, {with("iso_set", "400"), idle}), ARDENVUE_CAME) << "was shown";
    EXPECT_EQ(confirmed("record start", {idle}, {gimbal_focus_record()}), ARDENVUE_SHOWN);
    EXPECT_EQ(confirmed("focus point 0.25 0.75", {gimbal_focus_record()}, {gimbal_focus_record()}),
              ARDENVUE_WAS_THERE);
    EXPECT_EQ(confirmed("gimbal mode fpv", {idle}, {idle}), ARDENVUE_ERROR_NOT_REPORTED);

    // Many may be under way; those that are long past are forgotten.
    const Link link = open_link();
    Sender service;
    service.send(idle, link);
    ASSERT_EQ(ardenvue_link_wait(link.get(), ARDENVUE_STATUS_LINE, patience), ARDENVUE_STATUS_LINE);
    const int first = ardenvue_send(link.get(), "iso 400");
    for (int i = 0; i < 63; ++i) {
        ardenvue_send(link.get(), "ev 1.0");
    }
    service.send(with("iso_set", "400"), link);
    EXPECT_EQ(ardenvue_confirm(link.get(), first, patience), ARDENVUE_CAME);
    EXPECT_EQ(ardenvue_confirm(link.get(), first + 1, 10), ARDENVUE_ERROR_TIMEOUT);
    ardenvue_send(link.get(), "ev 1.0");
    EXPECT_EQ(ardenvue_confirm(link.get(), first, 0), ARDENVUE_ERROR_ARGUMENT);
    EXPECT_EQ(ardenvue_confirm(link.get(), -1, 0), ARDENVUE_ERROR_ARGUMENT);
    EXPECT_EQ(ardenvue_confirm(link.get(), 0, 0), ARDENVUE_ERROR_ARGUMENT);
}

}  // namespace
