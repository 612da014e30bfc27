#include "client/command_words.h"

#include <algorithm>
#include <charconv>
#include <memory>
#include <new>
#include <optional>
#include <vector>

#include <cjson/cJSON.h>

#include "formats/nearest_word.h"

namespace client {
namespace {

using Words = std::vector<std::string>;

constexpr std::size_t page_width = 100;
constexpr std::size_t longest_number = 31;  // characters; a word of the same value always fits
constexpr std::string_view blanks = " \t\r\n\v\f";

Words split(std::string_view text) {
    Words words;
    for (std::size_t at = text.find_first_not_of(blanks); at != std::string_view::npos;) {
        const std::size_t end = std::min(text.find_first_of(blanks, at), text.size());
        words.emplace_back(text.substr(at, end - at));
        at = text.find_first_not_of(blanks, end);
    }
    return words;
}

std::string join(std::span<const std::string> words) {
    std::string joined;
    for (const std::string& word : words) {
        joined += (joined.empty() ? "" : " ") + word;
    }
    return joined;
}

std::string plain_number(double number) {
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, number).ptr;
    return {text, end};
}

std::span<const Argument> arguments_of(const CommandRow& row) {
    return std::span{row.arguments}.first(row.argument_count());
}

std::string with_arguments(const CommandRow& row) {
    std::string text{row.words};
    for (const Argument& argument : arguments_of(row)) {
        text += ' ';
        text += argument.name;
    }
    return text;
}

// "unknown iso "450": did you mean "400"? Known: 100, 200, …"
std::string unknown(const std::string& what, const std::string& said, std::vector<std::string_view> known) {
    const std::string_view meant = formats::nearest_word(said, known);
    std::string text = said.empty() ? what + " is missing." : "unknown " + what + " \"" + said + "\"";
    if (!said.empty()) {
        text += meant.empty() ? "." : ": did you mean \"" + std::string{meant} + "\"?";
    }
    text += " Known:";
    for (const std::string_view word : known) {
        text += (word == known.front() ? " " : ", ") + std::string{word};
    }
    return text;
}

// The row that shares the most words with what was said, all of its own; null when there is none.
const CommandRow* find_row(const Words& said, std::size_t& matched) {
    const CommandRow* best = nullptr;
    matched = 0;
    for (const CommandRow& row : command_rows()) {
        const Words words = split(row.words);
        if (words.size() > matched && words.size() <= said.size() &&
            std::equal(words.begin(), words.end(), said.begin())) {
            best = &row;
            matched = words.size();
        }
    }
    return best;
}

// Nothing matches: the first or the second word is wrong.
std::string explain_unknown_words(const Words& said) {
    std::vector<std::string_view> first_words;
    std::vector<std::string_view> second_words;
    for (const CommandRow& row : command_rows()) {
        const std::string_view first = row.words.substr(0, row.words.find(' '));
        if (first_words.empty() || first_words.back() != first) {
            first_words.push_back(first);
        }
        if (!said.empty() && first == said.front() && row.words.size() > first.size()) {
            second_words.push_back(row.words.substr(first.size() + 1));
        }
    }
    if (second_words.empty()) {
        return unknown("command", said.empty() ? "" : said.front(), first_words);
    }
    return unknown(said.front() + " word", said.size() > 1 ? said[1] : "", second_words);
}

// The choice that was said, also as another writing of the same number.
const Choice* find_choice(const Argument& argument, const std::string& said) {
    const auto number = formats::number_of(said);
    for (const Choice& choice : argument.choices) {
        if (choice.word == said || (number && formats::number_of(choice.word) == number)) {
            return &choice;
        }
    }
    return nullptr;
}

std::string explain_unknown_choice(const CommandRow& row, const Argument& argument, const std::string& said) {
    std::vector<std::string_view> known;
    for (const Choice& choice : argument.choices) {
        known.push_back(choice.word);
    }
    const std::string prefix = std::string{row.words} + " ";
    for (const CommandRow& other : command_rows()) {
        if (other.words.starts_with(prefix)) {
            known.push_back(other.words.substr(prefix.size()));
        }
    }
    return unknown(std::string{row.words} + " " + std::string{argument.name}, said, known);
}

std::string check_number(const CommandRow& row, const Argument& argument, const std::string& said) {
    const auto number = formats::number_of(said);
    const bool plain = said.find_first_of("/\"+") == std::string::npos && said.size() <= longest_number;
    if (number && plain && *number >= argument.least && *number <= argument.most &&
        (!argument.whole || said.find_first_not_of("0123456789") == std::string::npos)) {
        return {};
    }
    return std::string{row.words} + " " + std::string{argument.name} + " is " +
           (argument.whole ? "a whole number" : "a number") + " from " + plain_number(argument.least) +
           " to " + plain_number(argument.most) + (said.empty() ? "" : ", not \"" + said + "\"");
}

std::string check_arguments(Command& command, std::span<const std::string> said) {
    const CommandRow& row = *command.awaited.row;
    const auto arguments = arguments_of(row);
    if (arguments.size() == 1 && !arguments.front().choices.empty()) {
        // A choice may be of several words.
        const Argument& argument = arguments.front();
        const std::string text = join(said);
        const Choice* choice = find_choice(argument, text);
        if (choice == nullptr) {
            return explain_unknown_choice(row, argument, text);
        }
        command.arguments[0] = choice->word;
        command.awaited.reported = choice->reported;
        return {};
    }
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string text = i < said.size() ? said[i] : "";
        if (std::string problem = check_number(row, arguments[i], text); !problem.empty()) {
            return problem;
        }
        command.arguments[i] = text;
        command.awaited.numbers[i] = formats::number_of(text).value_or(0);
    }
    if (said.size() > arguments.size()) {
        return "\"" + said[arguments.size()] + "\" is too much: the command is \"" + with_arguments(row) +
               "\"";
    }
    return {};
}

std::string to_json(const Command& command) {
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> object{cJSON_CreateObject(), cJSON_Delete};
    const CommandRow& row = *command.awaited.row;
    for (const auto& [name, value] : row.members) {
        if (name != nullptr) {
            cJSON_AddStringToObject(object.get(), name, value);
        }
    }
    for (std::size_t i = 0; i < row.argument_count(); ++i) {
        cJSON_AddStringToObject(object.get(), std::string{row.arguments[i].member}.c_str(),
                                command.arguments[i].c_str());
    }
    const std::unique_ptr<char, decltype(&cJSON_free)> text{cJSON_PrintUnformatted(object.get()), cJSON_free};
    if (!text) {
        throw std::bad_alloc{};
    }
    return text.get();
}

}  // namespace

ParsedCommand parse_command(std::string_view words) {
    const Words said = split(words);
    std::size_t matched = 0;
    Command command{};
    command.awaited.row = find_row(said, matched);
    if (command.awaited.row == nullptr) {
        return {command, explain_unknown_words(said)};
    }
    if (std::string problem = check_arguments(command, std::span{said}.subspan(matched)); !problem.empty()) {
        return {command, problem};
    }
    command.words = std::string{command.awaited.row->words};
    for (std::size_t i = 0; i < command.awaited.row->argument_count(); ++i) {
        command.words += " " + command.arguments[i];
    }
    command.json = to_json(command);
    return {command, {}};
}

std::string command_overview() {
    std::string text;
    for (const CommandRow& row : command_rows()) {
        std::string line = "  " + with_arguments(row);
        line.resize(std::max<std::size_t>(line.size() + 2, 32), ' ');
        text += line + std::string{row.summary} + "\n";
        for (const Argument& argument : arguments_of(row)) {
            if (argument.choices.empty()) {
                text += "      " + std::string{argument.name} + ": " + plain_number(argument.least) + " to " +
                        plain_number(argument.most) + "\n";
                continue;
            }
            line = "      " + std::string{argument.name} + ":";
            for (const Choice& choice : argument.choices) {
                std::string item{" "};
                item += choice.word;
                item += &choice == &argument.choices.back() ? "" : ",";
                if (line.size() + item.size() > page_width) {
                    text += line + "\n";
                    line = "       ";
                }
                line += item;
            }
            text += line + "\n";
        }
    }
    return text;
}

}  // namespace client
