// How the client and the simulator take their command lines: the same exit code for a wrong one, numbers
// refused with the range that matters, and a subcommand that there is none of named with the nearest.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include "formats/nearest_word.h"

namespace formats {

// EX_USAGE of sysexits.h; none of the codes that tell of a run.
constexpr int wrong_usage = 64;

// A number above 0, with a fraction where it has one: seconds, mostly.
inline CLI::Validator above_zero() {
    return {[](std::string& text) {
                double number = 0;
                const bool fits = CLI::detail::lexical_cast(text, number) && number > 0;
                return fits ? std::string{} : "takes a number above 0, not \"" + text + "\"";
            },
            "above 0"};
}

// A whole number above 0.
inline CLI::Validator count() {
    return {[](std::string& text) {
                const bool fits = !text.empty() &&
                                  text.find_first_not_of("0123456789") == std::string::npos &&
                                  text.find_first_not_of('0') != std::string::npos && text.size() < 19;
                return fits ? std::string{} : "takes a whole number above 0, not \"" + text + "\"";
            },
            "above 0"};
}

// The first word that stands where a subcommand is expected; empty when there is none.
inline std::string first_word(const CLI::App& app, int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        std::string word = argv[i];
        if (!word.starts_with('-')) {
            return word;
        }
        const CLI::Option* const option = app.get_option_no_throw(word);
        i += option != nullptr && option->get_expected_min() > 0 ? 1 : 0;
    }
    return {};
}

// Parses the command line, which runs the subcommand's callback. Returns -1, or the exit code when there is
// no more to do than what has been printed: help, the version, or what is wrong.
inline int parse_command_line(CLI::App& app, int argc, char** argv) {
    try {
        app.parse(argc, argv);
        return -1;
    } catch (const CLI::RequiredError& error) {
        const std::string word = first_word(app, argc, argv);
        if (!app.get_subcommands().empty() || word.empty()) {
            app.exit(error);
            return wrong_usage;
        }
        std::vector<std::string_view> known;
        for (const CLI::App* const subcommand : app.get_subcommands([](const CLI::App*) { return true; })) {
            known.push_back(subcommand->get_name());
        }
        const std::string_view nearest = nearest_word(word, known);
        const std::string advice =
            nearest.empty() ? "see --help" : "did you mean \"" + std::string{nearest} + "\"?";
        std::fprintf(stderr, "\"%s\" is no subcommand; %s\n", word.c_str(), advice.c_str());
        return wrong_usage;
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : wrong_usage;
    }
}

}  // namespace formats
