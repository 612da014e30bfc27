#include "gateway/interface.h"

#include <cmath>

#include "gateway/json_text.h"
#include "gateway/metrics.h"
#include "gateway/page_files.h"

namespace gateway {
namespace {

using namespace std::chrono_literals;

constexpr auto thread_patience = 5s;

Reply as_reply(const Answer& answer) {
    Reply reply;
    reply.status = answer.status;
    reply.body = answer.json;
    reply.awaited_command = answer.awaited_command;
    return reply;
}

Reply refused(unsigned status, const std::string& why) {
    return as_reply(refusal(status, why));
}

Reply text(std::string type, std::string body) {
    Reply reply;
    reply.type = std::move(type);
    reply.body = std::move(body);
    return reply;
}

const PageFile* find_page_file(std::string_view path) {
    const std::string_view name = path == "/" ? "/index.html" : path;
    for (const PageFile& file : page_files()) {
        if (name == file.path) {
            return &file;
        }
    }
    return nullptr;
}

// The body as an object; null when it is none.
Json parse_object(const std::string& body) {
    Json json{cJSON_ParseWithLength(body.data(), body.size())};
    return cJSON_IsObject(json.get()) ? std::move(json) : nullptr;
}

std::string control_token(const Request& request) {
    return request.header("X-Ardenvue-Control").value_or("");
}

// A member that must be a number; 0 where there is none.
double number_of(const cJSON* object, const char* name) {
    const cJSON* const member = cJSON_GetObjectItemCaseSensitive(object, name);
    return cJSON_IsNumber(member) && std::isfinite(member->valuedouble) ? member->valuedouble : 0;
}

// Which report shows a command, asked with the first argument that it takes: a choice, a number, or none.
std::string where_reported(const std::string& name) {
    const char* const choice = ardenvue_command_choice(name.c_str(), 0);
    for (const char* const argument : {choice != nullptr ? choice : "", "1", "5000", "0.5 0.5"}) {
        ArdenvueCommand command{};
        if (ardenvue_command_check((name + " " + argument).c_str(), &command, nullptr, 0) == 0) {
            return command.reported_in;
        }
    }
    return "";
}

bool reads(const Request& request) {
    return request.method == "GET" || request.method == "HEAD";
}

}  // namespace

struct Interface::Route {
    std::string_view method;
    std::string_view path;
    Reply (Interface::*answer)(const Request&, const ClientTotals&);
};

const Interface::Route Interface::routes[] = {
    {"GET", "/api/state", &Interface::state},       {"GET", "/api/events", &Interface::events},
    {"GET", "/api/commands", &Interface::commands}, {"POST", "/api/command", &Interface::command},
    {"GET", "/api/control", &Interface::control},   {"POST", "/api/control", &Interface::change_control},
    {"POST", "/api/sticks", &Interface::sticks},    {"GET", "/video.mp4", &Interface::video},
    {"GET", "/snapshot.mp4", &Interface::snapshot}, {"GET", "/api/openapi.json", &Interface::description},
    {"GET", "/metrics", &Interface::metrics},       {"GET", "/healthz", &Interface::health},
};

Interface::Interface(Doorkeeper::Rules rules, Station& station, const VideoHub& hub,
                     const VideoReader& reader)
    : doorkeeper_{std::move(rules)}, station_{station}, hub_{hub}, reader_{reader} {}

const Interface::Route* Interface::find_route(const Request& request, bool& is_known_path) {
    is_known_path = false;
    for (const Route& route : routes) {
        if (route.path == request.path) {
            is_known_path = true;
            if (route.method == request.method || (route.method == "GET" && request.method == "HEAD")) {
                return &route;
            }
        }
    }
    return nullptr;
}

std::optional<Reply> Interface::refuse(const Request& request, TimePoint now) {
    const bool asks_for_page = reads(request) && find_page_file(request.path) != nullptr;
    const bool asks_ahead = request.method == "OPTIONS" && !allowed_origin(request).empty();
    const Visitor visitor{request.address,          request.header("Host"),
                          request.header("Origin"), request.header("Authorization"),
                          reads(request),           asks_for_page || asks_ahead};
    if (const auto no = doorkeeper_.refuse(visitor, now)) {
        return refused(no->status, no->why);
    }
    return std::nullopt;
}

std::string Interface::allowed_origin(const Request& request) const {
    const auto origin = request.header("Origin");
    return origin && doorkeeper_.is_allowed_origin(*origin) ? *origin : "";
}

Reply Interface::answer(const Request& request, const ClientTotals& clients) {
    if (request.body.size() > longest_body) {
        return refused(413, "a request has at most 16,384 bytes");
    }
    bool is_known_path = false;
    if (const Route* const route = find_route(request, is_known_path)) {
        return (this->*route->answer)(request, clients);
    }
    const PageFile* const file = find_page_file(request.path);
    if (file != nullptr && reads(request)) {
        return text(std::string{file->type}, std::string{file->content});
    }
    if (request.method == "OPTIONS" && is_known_path) {
        Reply reply = text("text/plain", "");
        reply.status = 204;
        return reply;
    }
    return is_known_path || file != nullptr
               ? refused(405, "this path doesn't take the method " + request.method)
               : refused(404, "there is nothing at " + request.path);
}

Reply Interface::state(const Request& /*request*/, const ClientTotals& /*clients*/) {
    return text("application/json", station_.state_json());
}

Reply Interface::events(const Request& /*request*/, const ClientTotals& /*clients*/) {
    Reply reply;
    reply.type = "text/event-stream";
    reply.kind = Reply::Body::events;
    return reply;
}

Reply Interface::commands(const Request& /*request*/, const ClientTotals& /*clients*/) {
    const Json list{cJSON_CreateArray()};
    for (std::size_t i = 0; const char* const name = ardenvue_command_name(i); ++i) {
        cJSON* const entry = cJSON_CreateObject();
        cJSON_AddItemToArray(list.get(), entry);
        cJSON_AddStringToObject(entry, "name", name);
        cJSON* const choices = cJSON_AddArrayToObject(entry, "choices");
        for (std::size_t k = 0; const char* const choice = ardenvue_command_choice(name, k); ++k) {
            cJSON_AddItemToArray(choices, cJSON_CreateString(choice));
        }
        cJSON_AddStringToObject(entry, "reported_in", where_reported(name).c_str());
    }
    return text("application/json", to_text(list));
}

Reply Interface::command(const Request& request, const ClientTotals& /*clients*/) {
    CommandRequest wanted;
    wanted.token = control_token(request);
    if (request.body.find_first_not_of(" \t\r\n") == request.body.find('{') && !request.body.empty()) {
        const Json json = parse_object(request.body);
        if (!json) {
            return refused(400, "the body is no JSON object");
        }
        wanted.words = text_of(json.get(), "words");
        wanted.wait = number_of(json.get(), "wait");
        if (const cJSON* const object = cJSON_GetObjectItemCaseSensitive(json.get(), "json")) {
            const std::unique_ptr<char, decltype(&cJSON_free)> raw{cJSON_PrintUnformatted(object),
                                                                   &cJSON_free};
            wanted.json = cJSON_IsObject(object) && raw ? raw.get() : "";
        }
        if (wanted.words.empty() == wanted.json.empty()) {
            return refused(400, R"(a command is {"words":"iso 400"} or {"json":{…}})");
        }
    } else {
        wanted.words = request.body;
        wanted.words.erase(wanted.words.find_last_not_of(" \t\r\n") + 1);
    }
    if (wanted.words.find('\0') != std::string::npos) {
        return refused(400, "a command has no zero byte");
    }
    return as_reply(station_.send(wanted));
}

Reply Interface::control(const Request& /*request*/, const ClientTotals& /*clients*/) {
    return as_reply(station_.control());
}

Reply Interface::change_control(const Request& request, const ClientTotals& /*clients*/) {
    const Json json = parse_object(request.body);
    const std::string action = text_of(json.get(), "action");
    if (action == "take") {
        const bool by_force = cJSON_IsTrue(cJSON_GetObjectItemCaseSensitive(json.get(), "force")) != 0;
        return as_reply(station_.take_control(text_of(json.get(), "name"), by_force));
    }
    if (action == "renew") {
        return as_reply(station_.renew_control(control_token(request)));
    }
    if (action == "give") {
        return as_reply(station_.give_control(control_token(request)));
    }
    return refused(400, R"(the body is {"action":"take"}, "renew" or "give")");
}

Reply Interface::sticks(const Request& request, const ClientTotals& /*clients*/) {
    const Json json = parse_object(request.body);
    if (!json) {
        return refused(400, R"(the body is {"pan":0.1,"tilt":0,"roll":0})");
    }
    return as_reply(station_.move_sticks(
        control_token(request),
        {number_of(json.get(), "pan"), number_of(json.get(), "tilt"), number_of(json.get(), "roll")}));
}

Reply Interface::video(const Request& /*request*/, const ClientTotals& /*clients*/) {
    Reply reply;
    reply.type = "video/mp4";
    reply.kind = Reply::Body::video;
    return reply;
}

Reply Interface::snapshot(const Request& /*request*/, const ClientTotals& /*clients*/) {
    const std::vector<std::uint8_t> picture = hub_.snapshot();
    if (picture.empty()) {
        return refused(503, "there was no picture yet");
    }
    return text("video/mp4", std::string{picture.begin(), picture.end()});
}

Reply Interface::description(const Request& /*request*/, const ClientTotals& /*clients*/) {
    return text("application/json", std::string{interface_description()});
}

Reply Interface::metrics(const Request& /*request*/, const ClientTotals& clients) {
    return text("text/plain; version=0.0.4", metrics_text(station_.totals(), reader_.totals(), clients));
}

bool Interface::Pulse::moves(std::uint64_t now_passes, TimePoint now) {
    if (std::exchange(passes, now_passes) != now_passes || moved == TimePoint{}) {
        moved = now;
    }
    return now - moved <= thread_patience;
}

Reply Interface::health(const Request& /*request*/, const ClientTotals& /*clients*/) {
    const TimePoint now = Clock::now();
    const bool station_moves = station_seen_.moves(station_.passes(), now);
    const bool reader_moves = reader_seen_.moves(reader_.passes(), now);
    Reply reply =
        text("text/plain", "link " + std::string{link_state_words[station_.totals().link_state]} + "\n");
    if (!station_moves || !reader_moves) {
        reply.status = 503;
        reply.body = "a thread of the gateway stands still\n";
    }
    return reply;
}

}  // namespace gateway
