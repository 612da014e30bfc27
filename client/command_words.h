// The commands of the service, by their words: what may be said, and the JSON object that each becomes. This
// table is the library's own, written beside the service's dispatcher, not taken from it.
#pragma once

#include <array>
#include <limits>
#include <span>
#include <string>
#include <string_view>

#include "client/choices.h"
#include "client/reports.h"

namespace client {

// One argument: one of the choices or, when there are none, a number in the range. Without a name: none.
struct Argument {
    std::string_view name{};    // for the help, "KELVIN"
    std::string_view member{};  // the JSON member that carries it
    std::span<const Choice> choices{};
    double least = 0;
    double most = 0;
    bool whole = false;
};

struct CommandRow;

// What the state must show for a command to be confirmed.
struct Awaited {
    const CommandRow* row = nullptr;
    std::string_view reported{};      // the choice, as the camera's state calls it
    std::array<double, 2> numbers{};  // or the numbers
    double shots_before = std::numeric_limits<double>::quiet_NaN();  // of the line before the command
};

// Says whether reports show it.
using Shown = bool (*)(const Seen& now, const Awaited& awaited);

struct Member {
    const char* name = nullptr;
    const char* value = nullptr;
};

struct CommandRow {
    std::string_view words;  // what it begins with, "focus point"
    std::string_view summary;
    Member members[2];  // fixed members of the object; without a name: none
    Argument arguments[2];
    std::string_view reported_in;  // the key of the status line, or the record's field; empty: in no report
    Shown shown = nullptr;         // null: no report shows it

    std::size_t argument_count() const {
        return arguments[0].name.empty() ? 0U : arguments[1].name.empty() ? 1U : 2U;
    }
};

std::span<const CommandRow> command_rows();

// A command that was checked against its row.
struct Command {
    Awaited awaited;
    std::array<std::string, 2> arguments;  // as they are sent
    std::string words;                     // "iso 400"
    std::string json;                      // the object, without the "!"
};

struct ParsedCommand {
    Command command;
    std::string problem;  // not empty: what is wrong, what was probably meant, and what may be said
};

// Finds the row that the words begin with and checks the rest. Words are separated by blanks. A number may be
// written in any way: "+0.3" stands for "0.3", and 30 seconds of shutter need no double-quote character.
ParsedCommand parse_command(std::string_view words);

// All commands with their arguments, a line each.
std::string command_overview();

}  // namespace client
