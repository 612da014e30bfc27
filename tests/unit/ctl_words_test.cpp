// The client's words: what each command becomes, and what is said of words that are none.
#include <set>

#include <gmock/gmock.h>

#include "ctl/command_shown.h"
#include "ctl/command_words.h"

namespace {

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

TEST(CtlWords, EveryCommandBecomesItsObject) {
    std::set<const ctl::CommandRow*> met;
    for (const Row& row : rows) {
        const auto parsed = ctl::parse_command(row.words);
        EXPECT_EQ(parsed.problem, "") << row.words;
        EXPECT_EQ(parsed.command.json, row.json);
        met.insert(parsed.command.row);
    }
    EXPECT_EQ(met.size(), ctl::command_rows().size()) << "a command that no row above says";
}

TEST(CtlWords, WrongWordsAreExplained) {
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
    for (const auto& c : cases) {
        const auto parsed = ctl::parse_command(c.words);
        EXPECT_THAT(parsed.problem, testing::HasSubstr(c.said_of_it)) << c.words;
    }
    EXPECT_THAT(ctl::parse_command(std::string(100'000, 'x')).problem,
                testing::StartsWith("unknown command"));
}

ctl::Command command(const char* words) {
    return ctl::parse_command(words).command;
}

ctl::CameraView reporting(const char* key, const char* value) {
    ctl::CameraView view;
    view.line = ctl::StatusLine{{{key, value}}};
    return view;
}

// The edges of what counts as shown; that each command is shown at all is tested with the service.
TEST(CtlWords, AStateThatShowsSomethingElseConfirmsNothing) {
    const ctl::CameraView nothing;
    for (const ctl::CommandRow& row : ctl::command_rows()) {
        if (row.shown != nullptr) {
            ctl::Command any{&row, {"1", "1"}, {"1", "1"}, {}, {}};
            EXPECT_FALSE(row.shown(nothing, nothing, any)) << row.words;
        }
    }
    const struct {
        const char* words;
        ctl::CameraView view;
        bool shown;
    } cases[] = {
        {"iso 400", reporting("iso_set", "400"), true},
        {"iso 400", reporting("iso", "400"), false},
        {"ev 0.3", reporting("ev", "+0.3"), true},
        {"ev 0.0", reporting("ev", "0"), true},
        {"shotmode raw", reporting("shot_mode", "RAW"), true},
        {"shotmode raw", reporting("shot_mode", "JPG+RAW"), false},
        {"antiflicker 60", reporting("antiflicker", "60 Hz"), true},
        {"aperture 11", reporting("aperture", "11"), true},
        {"aperture 6.3", reporting("aperture", "6.3"), true},
        {"aperture 6.3", reporting("aperture", "5.6"), false},
    };
    for (const auto& c : cases) {
        const auto said = command(c.words);
        EXPECT_EQ(said.row->shown(nothing, c.view, said), c.shown) << c.words;
    }
    const auto shot = command("shot");
    EXPECT_TRUE(shot.row->shown(reporting("shots_left", "10"), reporting("shots_left", "9"), shot));
    EXPECT_FALSE(shot.row->shown(reporting("shots_left", "10"), reporting("shots_left", "10"), shot));
}

}  // namespace
