#include "sim/fault_plan.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>

namespace sim {
namespace {

constexpr double default_unplug_seconds = 1;
constexpr double default_silence_seconds = 2;
constexpr double default_garbage_bytes = 100;
constexpr double longest_seconds = 1e6;

// NAME[@AT][:AMOUNT]
struct FaultText {
    std::string name;
    std::optional<double> at;
    std::optional<double> amount;
    bool right = true;
};

FaultText read(const std::string& text) {
    FaultText fault;
    const std::size_t colon = std::min(text.find(':'), text.size());
    const std::size_t at = std::min(text.find('@'), colon);
    fault.name = text.substr(0, at);
    const auto number = [&](std::size_t begin, std::size_t end) -> std::optional<double> {
        if (begin == end) {
            return std::nullopt;
        }
        const std::string digits = text.substr(begin + 1, end - begin - 1);
        char* rest = nullptr;
        const double value = std::strtod(digits.c_str(), &rest);
        fault.right =
            fault.right && !digits.empty() && *rest == '\0' && value >= 0 && value <= longest_seconds;
        return value;
    };
    fault.at = number(at, colon);
    fault.amount = number(colon, text.size());
    return fault;
}

Time seconds(double value) {
    return Time{std::llround(value * 1e6)};
}

}  // namespace

std::string add_fault(const std::string& text, FaultPlan& plan) {
    const FaultText fault = read(text);
    const std::string wrong = "fault '" + text + "': ";
    if (!fault.right) {
        return wrong + "not a number";
    }
    if (fault.name == "unplug" || fault.name == "silence") {
        if (!fault.at) {
            return wrong + "needs a time, " + fault.name + "@SECOND";
        }
        const bool unplug = fault.name == "unplug";
        const double length =
            fault.amount.value_or(unplug ? default_unplug_seconds : default_silence_seconds);
        plan.interruptions.push_back({unplug ? Interruption::Kind::unplug : Interruption::Kind::silence,
                                      seconds(*fault.at), seconds(length)});
        std::stable_sort(
            plan.interruptions.begin(), plan.interruptions.end(),
            [](const Interruption& one, const Interruption& other) { return one.at < other.at; });
        return {};
    }
    if (fault.at) {
        return wrong + "takes no time";
    }
    if (fault.name == "garbage") {
        const double bytes = fault.amount.value_or(default_garbage_bytes);
        if (bytes < 1 || bytes > max_garbage) {
            return wrong + "1 to " + std::to_string(max_garbage) + " bytes";
        }
        plan.stream.garbage_bytes = static_cast<std::size_t>(bytes);
        return {};
    }
    if (fault.amount) {
        return wrong + "takes no number";
    }
    if (fault.name == "corrupt") {
        plan.stream.corrupt_packets = true;
    } else if (fault.name == "full-speed") {
        plan.full_speed = true;
    } else {
        return wrong + "unknown; there are garbage, corrupt, unplug, silence and full-speed";
    }
    return {};
}

}  // namespace sim
