// The smallest useful main application: listens to the status, stays present, sends one command and waits
// until the camera's state shows it.
//
//   commander 5000 iso 400
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include <ardenvue/client.h>

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fputs("usage: commander PORT WORD...\n", stderr);
        return 1;
    }
    std::string words;
    for (int i = 2; i < argc; ++i) {
        words += std::string{argv[i]} + " ";
    }

    // The status comes to one port of this machine; whoever binds it is the main application.
    ArdenvueLink* opened = nullptr;
    char reason[ARDENVUE_REASON_SIZE];
    const auto port = static_cast<std::uint16_t>(std::atoi(argv[1]));
    if (ardenvue_link_open(&opened, nullptr, port, reason, sizeof reason) < 0) {
        std::fprintf(stderr, "%s\n", reason);
        return 1;
    }
    const std::unique_ptr<ArdenvueLink, decltype(&ardenvue_link_close)> owned{opened, ardenvue_link_close};
    ArdenvueLink* const link = owned.get();
    ardenvue_link_keep_present(link, true);

    // A line tells what is so before the command. Where that doesn't matter, any report will do, five times
    // as soon.
    if (const int code = ardenvue_link_wait(link, ARDENVUE_STATUS_LINE, 15'000); code < 0) {
        std::fprintf(stderr, "no status: %s\n", ardenvue_error_text(code));
        return 1;
    }
    ArdenvueStatus status;
    ardenvue_link_status(link, &status);
    std::printf("%s, battery at %d %%\n", status.camera_model, static_cast<int>(status.battery_percent));

    const int command = ardenvue_send(link, words.c_str());
    if (command < 0) {
        std::fprintf(stderr, "%s\n", ardenvue_link_problem(link));
        return 1;
    }
    const int shown = ardenvue_confirm(link, command, 15'000);
    if (shown < 0) {
        std::fprintf(stderr, "not confirmed: %s\n", ardenvue_error_text(shown));
        return 1;
    }
    std::puts(shown == ARDENVUE_CAME ? "the camera's state shows it"
                                     : "the camera's state shows it, as before");
    return 0;
}
