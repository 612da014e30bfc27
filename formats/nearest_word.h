#pragma once

#include <optional>
#include <span>
#include <string_view>

namespace formats {

// The number that a word stands for: 400, -0.3, 1/50, or seconds with a double-quote character; none for
// other words.
std::optional<double> number_of(std::string_view word);

// The candidate that was probably meant: the nearest number for a number, else the word with the fewest
// letters different. Empty when nothing comes near.
std::string_view nearest_word(std::string_view word, std::span<const std::string_view> candidates);

}  // namespace formats
