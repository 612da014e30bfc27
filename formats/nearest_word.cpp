#include "formats/nearest_word.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <numeric>
#include <vector>

namespace formats {
namespace {

// Levenshtein distance: letters to insert, drop or replace.
std::size_t letters_different(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

}  // namespace

std::optional<double> number_of(std::string_view word) {
    const bool fraction = word.starts_with("1/");
    if (fraction) {
        word.remove_prefix(2);
    } else if (word.starts_with('+') && !word.starts_with("+-")) {
        word.remove_prefix(1);
    }
    if (!fraction && word.ends_with('"')) {
        word.remove_suffix(1);
    }
    double value = 0;
    const auto parsed = std::from_chars(word.data(), word.data() + word.size(), value);
    if (parsed.ec != std::errc{} || parsed.ptr != word.data() + word.size() || !std::isfinite(value)) {
        return std::nullopt;
    }
    return fraction ? 1 / value : value;
}

std::string_view nearest_word(std::string_view word, std::span<const std::string_view> candidates) {
    // Longer words are not commands, and the comparison would take its time.
    if (word.size() > 64) {
        return {};
    }
    const auto number = number_of(word);
    std::string_view best;
    double best_distance = std::numeric_limits<double>::max();
    for (const std::string_view candidate : candidates) {
        const auto candidate_number = number_of(candidate);
        double distance = 0;
        if (number && candidate_number) {
            distance = std::abs(*number - *candidate_number);
        } else if (number || candidate_number) {
            continue;
        } else {
            const std::size_t letters = letters_different(word, candidate);
            if (letters > std::max(word.size(), candidate.size()) / 2) {
                continue;
            }
            distance = static_cast<double>(letters);
        }
        if (distance < best_distance) {
            best = candidate;
            best_distance = distance;
        }
    }
    return best;
}

}  // namespace formats
