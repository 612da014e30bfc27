// Start-up and supervision of the shipped executable: what it says, what it leaves on the board, how it ends.
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "tests/blackbox/harness.h"
#include "tests/blackbox/says_in_order.h"

namespace {
using namespace blackbox;
using testing::EndsWith;
using testing::Ge;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

const std::string banner = "\nDJI Phantom 4 USB client\n";
const std::string supported = "Board model: Raspberry Pi Zero W Rev 1.1\nBoard supported\n";
const std::string usage =
    "DJI Phantom 4 receiver\nUsage:\n-d | --dst-host=<destination_host>\n-s | --dst-port=<destination_port>\n"
    "-v | --verbose\n-? | --help - show this help\n";

std::string lines(std::initializer_list<std::string> pieces) {
    std::string text;
    for (const std::string& piece : pieces) {
        text += piece;
    }
    return text;
}

// The values of the watchdog's lines.
std::vector<int> silences(const std::string& errors) {
    std::vector<int> values;
    std::istringstream lines{errors};
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("delta ")) {
            values.push_back(std::stoi(line.substr(6)));
        }
    }
    return values;
}

TEST(Startup, RefusesOtherBoards) {
    const struct {
        std::optional<std::string> model;
        std::string shown;
    } cases[] = {
        {"Raspberry Pi 3 Model B Rev 1.2", "Raspberry Pi 3 Model B Rev 1.2"},
        {std::nullopt, ""},
        {"", ""},
        // Only the first 100 bytes count.
        {std::string(90, '.') + "Raspberry Pi Zero W", std::string(90, '.') + "Raspberry "},
        {std::string("Raspberry Pi\0 Zero W", 20), "Raspberry Pi"},
    };
    for (const auto& [model, shown] : cases) {
        ServiceSetup setup;
        setup.board.model = model;
        Service service{setup};
        EXPECT_EQ(service.end_code(), 1);
        EXPECT_EQ(service.board().errors(),
                  lines({banner, "Board model: ", shown, "\nBoard not supported\n"}));
        EXPECT_EQ(service.board().run_file("board_supported"), "0");
    }
}

TEST(Startup, RefusesFaultyCommandLinesAtOnce) {
    const struct {
        std::vector<std::string> arguments;
        std::string says;
    } cases[] = {
        {{"-?"}, usage},
        {{"-s", "0"}, "Destination host or port not set\n"},
        {{"-d", "main.application.local"},
         "Destination host is not an IPv4 address: main.application.local\n" + usage},
    };
    for (const auto& [arguments, says] : cases) {
        ServiceSetup setup;
        setup.with_port = false;
        setup.arguments = arguments;
        Service service{setup};
        EXPECT_EQ(service.end_code(), 1);
        EXPECT_EQ(service.board().errors(), lines({banner, supported, says}));
        EXPECT_EQ(service.board().run_file("board_supported"), "1");
    }
}

TEST(Startup, NeedsNoPlaceForItsBoardFile) {
    sim::BoardOptions options;
    options.library = BOARD_LIBRARY_PATH;
    sim::Board board{options};
    std::filesystem::remove(board.directory() + "/run");
    board.start({SERVICE_PATH, {"-s", "0"}, {}, ""});
    EXPECT_TRUE(board.wait_for_end(patience));
    EXPECT_EQ(board.errors(), banner + supported + "Destination host or port not set\n");
}

// A taken TCP port, as a second relay on the board would take it.
class TakenPort {
  public:
    TakenPort() {
        address_.sin_family = AF_INET;
        socklen_t length = sizeof address_;
        if (bind(fd_.get(), reinterpret_cast<sockaddr*>(&address_), length) != 0 ||
            listen(fd_.get(), 1) != 0 ||
            getsockname(fd_.get(), reinterpret_cast<sockaddr*>(&address_), &length) != 0) {
            throw std::runtime_error("no TCP port");
        }
    }
    int number() const { return ntohs(address_.sin_port); }

  private:
    FileDescriptor fd_{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    sockaddr_in address_{};
};

TEST(Startup, EveryFailureHasItsLineAndItsCode) {
    const TakenPort taken;
    struct Case {
        std::string fault;
        int code;
        Lines lines;
        sim::BoardOptions board = {};
        std::vector<std::string> arguments = {};
    };
    const std::string no_relay = "Failed to start TCP server\n";
    Case no_controller{"", 1, {"Couldn't open USB device\n", "Gadget init failed\n"}};
    no_controller.board.controllers = {"dummy_udc", "musb-hdrc.1", "usb"};
    Case port_taken{"", 1, {"TCP server: Could not bind socket\n", no_relay}};
    port_taken.board.relay_port = taken.number();
    const Case cases[] = {
        {"shm_open.ardenvue_framebuffer",
         2,
         {"Init telemetry buffer\n", "Failed to init telemetry buffer\n"}},
        {"shm_space.ardenvue_framebuffer", 2, {"Failed to init telemetry buffer\n"}},
        {"socket_udp", 1, {"Init connection to main application 127.0.0.1:", "Failed\n"}, {}, {"-v"}},
        no_controller,
        {"mutex_init", 1, {"USB device opened\n", "Mutex init failedGadget init failed\n"}},
        {"socket_tcp", 1, {"Init done\n", "TCP server: Could not create listen socket\n", no_relay}},
        port_taken,
        {"listen", 1, {"TCP server: Could not open socket for listening\n", no_relay}},
        {"accept",
         1,
         {"TCP server: Waiting TCP client connection...\n",
          "TCP server: Could not open a socket to accept data\n"}},
    };
    std::vector<std::unique_ptr<Service>> services;  // all at once: each sleeps for a second
    for (const Case& one : cases) {
        ServiceSetup setup{one.board, one.arguments, {}, true, {}};
        if (!one.fault.empty()) {
            setup.faults = {one.fault};
        }
        services.push_back(std::make_unique<Service>(setup));
    }
    for (std::size_t i = 0; i < services.size(); ++i) {
        EXPECT_EQ(services[i]->end_code(), cases[i].code) << services[i]->board().errors();
        EXPECT_THAT(services[i]->board().errors(), SaysInOrder(cases[i].lines));
    }
}

TEST(Startup, ControllerThatRefusesTheConfigurationEndsIt) {
    sim::BoardOptions options;
    options.library = BOARD_LIBRARY_PATH;
    options.controllers = {"musb-hdrc", "fe980000.usb", "gadget", "3f980000.usb"};
    sim::Board board{options};
    // The known controller that the directory lists first is taken, and no other tried.
    for (const auto& entry : std::filesystem::directory_iterator{board.directory() + "/dev/gadget"}) {
        if (const std::string name = entry.path().filename(); name != "gadget") {
            board.cable().refuse_configuration(name, EINVAL);
            break;
        }
    }
    board.start({SERVICE_PATH, {}, {}, ""});
    ASSERT_TRUE(board.wait_for_end(patience));
    EXPECT_EQ(board.wait_for_end(patience)->code, 1);
    EXPECT_THAT(board.errors(), SaysInOrder({"Couldn't open USB device\n", "Gadget init failed\n"}));
}

// A directory with a pidof that logs how it was called, and answers what the test put there.
class FakePidof {
  public:
    explicit FakePidof(const std::string& answer, const std::string& last_command = "")
        : directory_{testing::TempDir() + "pidof.XXXXXX"} {
        if (mkdtemp(directory_.data()) == nullptr) {
            throw std::runtime_error(directory_);
        }
        std::ofstream{directory_ + "/answer"} << answer;
        write_script(directory_ + "/pidof", "echo \"$@\" >> " + directory_ + "/calls\ncat " + directory_ +
                                                "/answer\n" + last_command);
    }
    ~FakePidof() { std::filesystem::remove_all(directory_); }
    FakePidof(const FakePidof&) = delete;
    FakePidof& operator=(const FakePidof&) = delete;

    std::string path_variable() const { return "PATH=" + directory_ + ":" + std::getenv("PATH"); }
    std::string calls() const {
        std::ifstream file{directory_ + "/calls"};
        return {std::istreambuf_iterator<char>{file}, {}};
    }

    static void write_script(const std::filesystem::path& path, const std::string& body) {
        std::ofstream{path} << "#!/bin/sh\n" << body;
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    }

  private:
    std::string directory_;
};

// A service whose companion can be looked for and started.
struct WithCompanion {
    explicit WithCompanion(const std::string& pidof_answer, const std::string& last_command = "")
        : pidof{pidof_answer, last_command} {
        ServiceSetup setup;
        setup.environment = {pidof.path_variable()};
        service = std::make_unique<Service>(setup);
        FakePidof::write_script(place() / "linkagent", "touch started.$$\n");
    }
    std::filesystem::path place() const {
        return std::filesystem::path{service->board().directory()} / "cwd";
    }
    int companions_started() const {
        int count = 0;
        for (const auto& entry : std::filesystem::directory_iterator{place()}) {
            count += entry.path().filename().string().starts_with("started") ? 1 : 0;
        }
        return count;
    }

    FakePidof pidof;
    std::unique_ptr<Service> service;
};

TEST(Supervision, KeepsTheCompanionRunningWhileDataFlows) {
    WithCompanion absent{""};
    WithCompanion nonsense{"none\n"};
    WithCompanion running{"4711 4712\n"};
    WithCompanion unknown{""};
    WithCompanion missing{""};
    std::filesystem::remove(missing.place() / "linkagent");
    WithCompanion hanging{"", "exec sleep 60\n"};
    unknown.service->board().set_fault("popen");
    std::vector<std::thread> hosts;  // side by side: a service waits five seconds for its host
    for (WithCompanion* one : {&absent, &nonsense, &running, &unknown, &missing, &hanging}) {
        hosts.emplace_back([one] { one->service->stream(); });
    }
    for (std::thread& host : hosts) {
        host.join();
    }
    ASSERT_FALSE(HasFatalFailure());
    EXPECT_TRUE(eventually([&] { return absent.companions_started() >= 1; }));
    EXPECT_TRUE(eventually([&] { return nonsense.companions_started() >= 1; }));
    // Where pidof can't be run nothing is started, until it can.
    EXPECT_EQ(unknown.companions_started(), 0);
    EXPECT_EQ(unknown.pidof.calls(), "");
    unknown.service->board().set_fault("popen", false);
    // The watchdog does not wait for a pidof that hangs.
    EXPECT_TRUE(eventually([&] { return hanging.pidof.calls() == "linkagent\n"; }));
    hanging.service->stop_keep_alive();
    EXPECT_EQ(hanging.service->end_code(), 2);
    // Asked again five seconds later, and started again if need be.
    EXPECT_TRUE(eventually([&] { return absent.companions_started() >= 2; }));
    EXPECT_TRUE(eventually([&] { return unknown.companions_started() >= 1; }));
    EXPECT_TRUE(eventually([&] { return running.pidof.calls() == "linkagent\nlinkagent\n"; }));
    EXPECT_EQ(running.companions_started(), 0);
    // That there is none is said once, and an executable that comes later is started.
    EXPECT_TRUE(eventually([&] { return missing.pidof.calls() == "linkagent\nlinkagent\n"; }));
    FakePidof::write_script(missing.place() / "linkagent", "touch started.$$\n");
    EXPECT_TRUE(eventually([&] { return missing.companions_started() >= 1; }));
    EXPECT_TRUE(missing.service->said("not found"));
    const std::string errors = missing.service->board().errors();
    EXPECT_EQ(errors.find("not found"), errors.rfind("not found"));
}

TEST(Supervision, EndsTheProcessWhenNoCameraComes) {
    const WithCompanion quiet{""};
    Service& service = *quiet.service;
    Service verbose{{{}, {"-v", "-d", "127.0.0.2"}, {}, true, {}}};
    EXPECT_EQ(service.end_code(), 2);

    const std::string errors = service.board().errors();
    EXPECT_THAT(errors, SaysInOrder({banner + supported, "Init telemetry buffer\n", "USB device opened\n",
                                     "Init done\n", "TCP server: Waiting TCP client connection...\n",
                                     "\ndelta ", "\nCamera connection timeout\n"}));
    // A line for every pass with more than a second of silence; the first beyond five seconds is the last.
    const std::vector<int> deltas = silences(errors);
    ASSERT_THAT(deltas, SizeIs(Ge(2U)));
    EXPECT_GT(deltas.front(), 1000);
    EXPECT_LE(deltas[deltas.size() - 2], 5000);
    EXPECT_GT(deltas.back(), 5000);
    EXPECT_THAT(errors, EndsWith("delta " + std::to_string(deltas.back()) + "\nCamera connection timeout\n"));
    EXPECT_THAT(errors, Not(HasSubstr("Init connection")));
    EXPECT_THAT(errors, Not(HasSubstr("Done")));
    EXPECT_EQ(service.board().run_file("board_supported"), "1");
    EXPECT_EQ(service.board().setup_commands(),
              "modprobe gadgetfs > /dev/null 2>&1\nmkdir /dev/gadget > /dev/null 2>&1\n"
              "mount -t gadgetfs none /dev/gadget > /dev/null 2>&1\n");
    EXPECT_EQ(quiet.pidof.calls(), "");

    EXPECT_EQ(verbose.end_code(), 2);
    const std::string port = std::to_string(verbose.main_application().port());
    EXPECT_THAT(verbose.board().errors(),
                SaysInOrder({"Init telemetry buffer\n",
                             "Init connection to main application 127.0.0.2:" + port + "\n", "Done\n",
                             "USB device opened\n"}));
}
}  // namespace
