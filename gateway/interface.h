// What is served, apart from how HTTP carries it: a table of paths, and a reply to each request.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "gateway/doorkeeper.h"
#include "gateway/station.h"
#include "gateway/video_hub.h"
#include "gateway/video_reader.h"

namespace gateway {

struct Request {
    std::string method;
    std::string path;  // without its query, decoded
    std::string address;
    // A header's or a query argument's value; null where it is missing.
    std::function<std::optional<std::string>(const char* name)> header;
    std::function<std::optional<std::string>(const char* name)> argument;
    std::string body;
};

struct Reply {
    enum class Body { text, video, events };

    unsigned status = 200;
    std::string type = "application/json";
    std::string body;
    Body kind = Body::text;
    int awaited_command = 0;  // the reply is this command's, once it is settled
};

// Clients as the server counts them.
struct ClientTotals {
    std::size_t viewers;
    std::size_t listeners;
    std::size_t connections;
    std::uint64_t pictures_skipped;  // for viewers that were too slow
    std::uint64_t dropped;           // that stood still
};

// The longest body of a request; a command has at most 9,999 bytes.
constexpr std::size_t longest_body = 16'384;

// All calls come from the server's thread.
class Interface {
  public:
    Interface(Doorkeeper::Rules rules, Station& station, const VideoHub& hub, const VideoReader& reader);

    // Null when the request may go on; called when its headers are there, before the body comes.
    std::optional<Reply> refuse(const Request& request, TimePoint now);
    Reply answer(const Request& request, const ClientTotals& clients);
    // The origin of another site that may see the reply; empty for none.
    std::string allowed_origin(const Request& request) const;

  private:
    struct Route;
    static const Route routes[];
    // How far another thread had come, and when that was seen first.
    struct Pulse {
        std::uint64_t passes = 0;
        TimePoint moved{};

        bool moves(std::uint64_t now_passes, TimePoint now);
    };
    static const Route* find_route(const Request& request, bool& is_known_path);

    Reply state(const Request& request, const ClientTotals& clients);
    Reply events(const Request& request, const ClientTotals& clients);
    Reply commands(const Request& request, const ClientTotals& clients);
    Reply command(const Request& request, const ClientTotals& clients);
    Reply control(const Request& request, const ClientTotals& clients);
    Reply change_control(const Request& request, const ClientTotals& clients);
    Reply sticks(const Request& request, const ClientTotals& clients);
    Reply video(const Request& request, const ClientTotals& clients);
    Reply snapshot(const Request& request, const ClientTotals& clients);
    Reply description(const Request& request, const ClientTotals& clients);
    Reply metrics(const Request& request, const ClientTotals& clients);
    Reply health(const Request& request, const ClientTotals& clients);

    Doorkeeper doorkeeper_;
    Station& station_;
    const VideoHub& hub_;
    const VideoReader& reader_;
    Pulse station_seen_;
    Pulse reader_seen_;
};

}  // namespace gateway
