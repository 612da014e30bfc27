#pragma once

#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

namespace blackbox {

using Lines = std::vector<std::string>;

MATCHER_P(SaysInOrderMatcher, wanted, "says in this order " + testing::PrintToString(wanted)) {
    std::size_t at = 0;
    for (const std::string& line : wanted) {
        at = arg.find(line, at);
        if (at == std::string::npos) {
            *result_listener << "without " << testing::PrintToString(line);
            return false;
        }
        at += line.size() - 1;  // the next may begin with this one's line end
    }
    return true;
}

// The lines stand there in this order. Other threads may say something in between.
inline auto SaysInOrder(Lines wanted) {
    return SaysInOrderMatcher(std::move(wanted));
}

}  // namespace blackbox
