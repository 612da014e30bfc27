// ardenvue-gateway: stands in the place of the main application, and serves picture, state and controls over
// HTTP.
#include <fcntl.h>
#include <microhttpd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "formats/command_line.h"
#include "formats/stop_signals.h"
#include "gateway/control.h"
#include "gateway/interface.h"
#include "gateway/options.h"
#include "gateway/server.h"
#include "gateway/station.h"
#include "gateway/video_reader.h"
#include "gateway/waker.h"

namespace gateway {
namespace {

enum ExitCode : int { done = 0, unusable = 2, port_taken = 3 };

volatile std::sig_atomic_t is_stopped = 0;

// A token file of its own; never over one that is there.
int make_token(const std::string& path) {
    const FileDescriptor file{open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)};
    const std::string line = random_hex(32) + "\n";
    if (!file || write(file.get(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        std::fprintf(stderr, "ardenvue-gateway: %s: %s\n", path.c_str(), std::strerror(errno));
        return unusable;
    }
    std::printf("%s", line.c_str());
    return done;
}

ServerOptions server_options(const Options& options, bool has_token) {
    ServerOptions server;
    server.listen = options.listen;
    server.has_token = has_token;
    if (!options.certificate_file.empty()) {
        if (MHD_is_feature_supported(MHD_FEATURE_TLS) != MHD_YES) {
            throw std::runtime_error(
                "this build's HTTP library has no TLS; put a reverse proxy before the gateway");
        }
        server.certificate = read_pem(options.certificate_file);
        server.key = read_pem(options.key_file);
    }
    return server;
}

int serve(const Options& options) {
    Doorkeeper::Rules rules;
    rules.token = options.token_file.empty() ? "" : read_token(options.token_file);
    rules.open_reading = options.open_reading;
    rules.hosts = options.allowed_hosts;
    rules.origins = options.allowed_origins;
    const ServerOptions of_server = server_options(options, !rules.token.empty());

    const Waker waker;
    VideoHub hub;
    Station station{options, hub, [&waker] { waker.wake(); }};
    VideoReader reader{options.ring_name, hub, [&](bool has_new_header) {
                           if (has_new_header) {
                               station.say_new_header();
                           }
                           waker.wake();
                       }};
    Interface interface { std::move(rules), station, hub, reader };
    Server server{of_server, interface, station, hub, waker};
    station.set_address(server.url());
    server.start();
    std::fprintf(stderr, "ardenvue-gateway: %s/\n", server.url().c_str());
    station.run([] { return is_stopped != 0; });
    return done;
}

}  // namespace

}  // namespace gateway

int main(int argc, char** argv) try {
    gateway::Options options;
    std::string token_file;
    CLI::App app{
        "Serves the live picture, the state and the controls of a running ardenvue service over HTTP, in "
        "the place of the main application."};
    app.set_version_flag("--version", "ardenvue-gateway " ARDENVUE_VERSION);
    app.footer(
        "Exit codes:\n"
        "  0  done\n"
        "  2  a file, socket or shared-memory object can't be used\n"
        "  3  the status port is held by another process\n"
        " 64  wrong options\n");
    gateway::add_options(app, options);
    CLI::App* token = app.add_subcommand("token", "Make a file with a new token, and print the token");
    token->add_option("file", token_file, "file to write, which only its owner may read")->required();
    if (const int parsed = formats::parse_command_line(app, argc, argv); parsed >= 0) {
        return parsed;
    }
    formats::on_stop_signals([](int) { gateway::is_stopped = 1; });
    std::signal(SIGPIPE, SIG_IGN);
    return token->parsed() ? gateway::make_token(token_file) : gateway::serve(options);
} catch (const gateway::Station::PortTaken& taken) {
    std::fprintf(stderr, "ardenvue-gateway: %s\n", taken.what());
    return gateway::port_taken;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "ardenvue-gateway: %s\n", failure.what());
    return gateway::unusable;
}
