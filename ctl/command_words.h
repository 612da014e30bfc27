// The commands of the service, by their words: what may be said, and the JSON object that each becomes. This
// table is the client's own, written beside the service's dispatcher, not taken from it.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ctl/reports.h"

namespace ctl {

struct Command;

// A word that an argument may be, and what the camera's state calls it.
struct Choice {
    constexpr Choice(const char* both) : word{both}, reported{both} {}
    constexpr Choice(const char* said, const char* shown) : word{said}, reported{shown} {}

    std::string_view word;
    std::string_view reported;
};

// One argument: one of the choices or, when there are none, a number in the range.
struct Argument {
    std::string_view name;    // for the help, "KELVIN"
    std::string_view member;  // the JSON member that carries it
    std::span<const Choice> choices{};
    double least = 0;
    double most = 0;
    bool whole = false;
};

// Says whether the reports that arrived since the command was sent show it; before holds those up to then.
using Shown = bool (*)(const CameraView& before, const CameraView& now, const Command& command);

struct Member {
    const char* name;
    const char* value;
};

struct CommandRow {
    std::string_view words;  // what it begins with, "focus point"
    std::string_view summary;
    std::vector<Member> members;  // fixed members of the object
    std::vector<Argument> arguments;
    std::string_view reported_in;  // the key of the status line, or the record's field; empty: in no report
    Shown shown = nullptr;         // null: no report shows it
};

std::span<const CommandRow> command_rows();

// A command that was checked against its row.
struct Command {
    const CommandRow* row;
    std::vector<std::string> arguments;  // as they are sent
    std::vector<std::string> reported;   // as the camera's state calls them
    std::string words;                   // "iso 400"
    std::string json;                    // the object, without the "!"
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

}  // namespace ctl
