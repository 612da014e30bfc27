#include "gateway/options.h"

#include <CLI/CLI.hpp>

#include "ardenvue.h"
#include "formats/board_file.h"

namespace gateway {
namespace {

void read_board(const std::string& folder, Options& options) {
    const auto names = formats::read_board_file(folder);
    if (!names) {
        throw CLI::ValidationError("--board", "there is no simulated board in " + folder);
    }
    const auto get = [&names](const char* name, const std::string& otherwise) {
        const auto found = names->find(name);
        return found == names->end() ? otherwise : found->second;
    };
    options.ring_name = get("FRAME_RING", options.ring_name);
    options.sticks_name = get("RC_RAW_STATE", options.sticks_name);
    options.status_port =
        static_cast<std::uint16_t>(std::stoi(get("STATUS_PORT", std::to_string(options.status_port))));
}

}  // namespace

void add_options(CLI::App& app, Options& options) {
    app.add_option("--listen", options.listen,
                   "where it serves HTTP, HOST:PORT; any but a loopback address takes a token file")
        ->capture_default_str();
    app.add_option("--forward", options.forward,
                   "HOST:PORT of the main application, to which all that the service sends is passed on");
    app.add_option("--token-file", options.token_file, "file with the token that clients must send");
    app.add_flag("--open-reading", options.open_reading,
                 "let everybody see picture and state without the token");
    app.add_option("--allow-host", options.allowed_hosts,
                   "a name of this machine by which clients may call it, besides its own; may be repeated");
    app.add_option("--allow-origin", options.allowed_origins,
                   "another site whose pages may use it, https://HOST[:PORT]; may be repeated");
    auto* certificate = app.add_option("--cert", options.certificate_file, "certificate chain for TLS, PEM");
    auto* key = app.add_option("--key", options.key_file, "its key, PEM")->needs(certificate);
    certificate->needs(key);

    const auto group = "Where the service is";
    app.add_option("--status-port", options.status_port, "UDP port that the service sends its status to")
        ->check(CLI::Range(1, 65'535))
        ->capture_default_str()
        ->group(group);
    app.add_option("--status-address", options.status_address,
                   "address of this machine that the status is sent to")
        ->check(CLI::ValidIPV4)
        ->capture_default_str()
        ->group(group);
    app.add_option("--ring", options.ring_name, "shared-memory name of the live video")
        ->capture_default_str()
        ->group(group);
    app.add_option("--sticks", options.sticks_name, "shared-memory name of the stick inputs")
        ->capture_default_str()
        ->group(group);
    app.add_option("--stick-guard", options.guard_path, "executable of the stick inputs' guard")
        ->group(group);
    app.add_option("--board", "directory of a simulated board; sets all of these")
        ->check(CLI::ExistingDirectory)
        ->trigger_on_parse()
        ->each([&options](const std::string& folder) { read_board(folder, options); })
        ->group(group);
}

Options::Options()
    : status_port{ardenvue::default_status_port},
      ring_name{ardenvue::frame_ring_name},
      sticks_name{ardenvue::rc_raw_state_name} {}

}  // namespace gateway
