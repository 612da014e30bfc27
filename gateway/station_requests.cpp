// What the station does for those who ask over HTTP: commands, the controls, the sticks.
#include <algorithm>
#include <array>

#include "gateway/json_text.h"
#include "gateway/station.h"

namespace gateway {
namespace {

// Reports of the camera's state take a second or so.
constexpr double shortest_watch = 5;
constexpr double longest_wait = 30;

Json command_json(const SentCommand& command) {
    Json json{cJSON_CreateObject()};
    cJSON_AddStringToObject(json.get(), "words", command.words.c_str());
    cJSON_AddStringToObject(json.get(), "result", command.result.c_str());
    return json;
}

Answer answer_to(const SentCommand& command) {
    const Json json = command_json(command);
    cJSON_AddStringToObject(json.get(), "reported_in", command.reported_in.c_str());
    return {200, to_text(json)};
}

}  // namespace

Answer refusal(unsigned status, const std::string& why) {
    const Json json{cJSON_CreateObject()};
    cJSON_AddStringToObject(json.get(), "error", why.c_str());
    return {status, to_text(json)};
}

void Station::say_control(const std::string& taken_from) {
    events_.add(EventKind::control, control_json(taken_from));
    state_told_ = {};
}

std::string Station::control_json(const std::string& taken_from) const {
    const Json json{cJSON_CreateObject()};
    const auto& holder = control_.holder();
    holder ? cJSON_AddStringToObject(json.get(), "holder", holder->name.c_str())
           : cJSON_AddNullToObject(json.get(), "holder");
    cJSON_AddNumberToObject(json.get(), "id", holder ? static_cast<double>(holder->id) : 0);
    cJSON_AddNumberToObject(json.get(), "expires", holder ? in_seconds(holder->expires - Clock::now()) : 0);
    if (!taken_from.empty()) {
        cJSON_AddStringToObject(json.get(), "taken_from", taken_from.c_str());
    }
    return to_text(json);
}

void Station::say_command(const SentCommand& command) {
    const Json json = command_json(command);
    cJSON_AddStringToObject(json.get(), "by", command.by.c_str());
    events_.add(EventKind::command, to_text(json));
    state_told_ = {};
}

// Null when the hand may act: it has the controls, or nobody has.
std::optional<Answer> Station::refuse_hand(const std::string& token) const {
    if (control_.is_holder(token)) {
        return std::nullopt;
    }
    if (control_.holder()) {
        return refusal(409, control_.holder()->name + " has the controls");
    }
    if (!token.empty()) {
        return refusal(403, "you no longer have the controls");
    }
    return std::nullopt;
}

Answer Station::send(const CommandRequest& request) {
    const std::lock_guard guard{lock_};
    if (auto refused = refuse_hand(request.token)) {
        return *refused;
    }
    ArdenvueCommand command{};
    char reason[ARDENVUE_REASON_SIZE];
    const bool is_by_words = request.json.empty();
    if (is_by_words && ardenvue_command_check(request.words.c_str(), &command, reason, sizeof reason) != 0) {
        return refusal(400, reason);
    }
    const int number = is_by_words ? ardenvue_send(link_.get(), request.words.c_str())
                                   : ardenvue_send_json(link_.get(), request.json.c_str());
    if (number < 0) {
        return refusal(number == ARDENVUE_ERROR_COMMAND ? 400 : 503, ardenvue_link_problem(link_.get()));
    }
    SentCommand sent;
    sent.words = is_by_words ? command.words : request.json;
    sent.by = control_.holder() ? control_.holder()->name : "";
    sent.reported_in = command.reported_in;
    sent.result = "sent";
    sent.number = number;
    const double wait = std::clamp(request.wait, 0.0, longest_wait);
    sent.deadline =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(Seconds{wait > 0 ? wait : shortest_watch});
    commands_.add(sent);
    say_command(sent);
    wake_();
    Answer answer = answer_to(sent);
    answer.awaited_command = wait > 0 && !sent.is_settled() ? number : 0;
    return answer;
}

std::optional<Answer> Station::settled(int command) {
    const std::lock_guard guard{lock_};
    const SentCommand* const found = commands_.find(command);
    if (found == nullptr) {
        return refusal(503, "too many commands to tell what became of this one");
    }
    return found->is_settled() ? std::optional{answer_to(*found)} : std::nullopt;
}

Answer Station::take_control(const std::string& name, bool by_force) {
    const std::lock_guard guard{lock_};
    const std::string before = control_.holder() ? control_.holder()->name : "";
    const Control::Holder* const holder = control_.take(name, by_force, Clock::now());
    if (holder == nullptr) {
        const Json json{cJSON_CreateObject()};
        cJSON_AddStringToObject(json.get(), "error", (before + " has the controls").c_str());
        cJSON_AddStringToObject(json.get(), "holder", before.c_str());
        return {409, to_text(json)};
    }
    sticks_.let_go();
    say_control(before);
    wake_();
    const Json json{cJSON_CreateObject()};
    cJSON_AddStringToObject(json.get(), "token", holder->token.c_str());
    cJSON_AddNumberToObject(json.get(), "id", static_cast<double>(holder->id));
    cJSON_AddNumberToObject(json.get(), "expires", in_seconds(Control::term));
    return {200, to_text(json)};
}

Answer Station::renew_control(const std::string& token) {
    const std::lock_guard guard{lock_};
    return control_.renew(token, Clock::now()) ? Answer{200, control_json("")}
                                               : refusal(403, "you no longer have the controls");
}

Answer Station::give_control(const std::string& token) {
    const std::lock_guard guard{lock_};
    if (!control_.give(token)) {
        return refusal(403, "you no longer have the controls");
    }
    sticks_.let_go();
    say_control("");
    wake_();
    return {200, control_json("")};
}

Answer Station::control() {
    const std::lock_guard guard{lock_};
    return {200, control_json("")};
}

Answer Station::move_sticks(const std::string& token, const std::array<double, 3>& inputs) {
    const std::lock_guard guard{lock_};
    if (!control_.is_holder(token)) {
        return control_.holder() ? *refuse_hand(token) : refusal(403, "take the controls first");
    }
    const std::string problem = sticks_.set(inputs);
    return problem.empty() ? Answer{200, "{}"} : refusal(503, problem);
}

}  // namespace gateway
