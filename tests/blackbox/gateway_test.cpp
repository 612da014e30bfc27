// The gateway in the place of the main application, and those who ask it over HTTP.
#include <fcntl.h>
#include <sys/mman.h>

#include "tests/blackbox/gateway_stage.h"

namespace gateway_stage {
namespace {

// ---- In the place of the main application ----

// A UDP socket of this machine that stands for the service, or for the main application.
class Peer {
  public:
    explicit Peer(std::uint16_t wanted = 0) : socket_{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)} {
        sockaddr_in address = loopback(wanted);
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), size), 0);
        getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address), &size);
        port = ntohs(address.sin_port);
    }
    void send(const std::string& datagram, std::uint16_t to) const {
        const sockaddr_in address = loopback(to);
        EXPECT_EQ(sendto(socket_.get(), datagram.data(), datagram.size(), 0,
                         reinterpret_cast<const sockaddr*>(&address), sizeof address),
                  static_cast<ssize_t>(datagram.size()));
    }
    // The next datagram, and in source where it came from; "nothing" when none comes for so long.
    std::string receive(std::chrono::milliseconds wait = patience) {
        pollfd readable{socket_.get(), POLLIN, 0};
        if (poll(&readable, 1, static_cast<int>(wait.count())) <= 0) {
            return "nothing";
        }
        std::string datagram(65'536, '\0');
        sockaddr_in from{};
        socklen_t size = sizeof from;
        datagram.resize(static_cast<std::size_t>(recvfrom(socket_.get(), datagram.data(), datagram.size(), 0,
                                                          reinterpret_cast<sockaddr*>(&from), &size)));
        source = ntohs(from.sin_port);
        return datagram;
    }

    std::uint16_t port = 0;
    std::uint16_t source = 0;

  private:
    FileDescriptor socket_;
};

// A status line and a record, as the service sent them.
std::vector<std::string> reports_of_a_service() {
    const Stage stage;
    Peer application{stage.port()};
    std::string line;
    std::string record;
    while (line.empty() || record.empty()) {
        const std::string datagram = application.receive();
        EXPECT_NE(datagram, "nothing");
        (datagram.find("camera_model") != std::string::npos ? line : record) = datagram;
    }
    return {line, record};
}

TEST(Forwarding, PassesTheSameBytesBothWaysInOrderAndNothingElse) {
    const std::vector<std::string> reports = reports_of_a_service();
    Peer application;
    const std::uint16_t status_port = free_status_port();
    Gateway gateway{"--ring none --sticks none --status-port " + std::to_string(status_port) +
                    " --forward localhost:" + std::to_string(application.port)};
    const Peer stranger;
    std::vector<std::uint16_t> sources;
    for (int start = 0; start < 3; ++start) {
        Peer service;
        // A service that starts anew is believed once the one before has been silent.
        EXPECT_TRUE(eventually([&] {
            service.send(reports[0], status_port);
            return application.receive(200ms) == reports[0];
        }));
        EXPECT_EQ(std::ranges::count(sources, application.source), 0);
        sources.push_back(application.source);

        std::chrono::nanoseconds longest{};
        for (int i = 0; i < 50; ++i) {
            const std::string unknown = "of a later service " + std::to_string(i) + std::string(8000, '.');
            stranger.send(reports[0], status_port);
            service.send("", status_port);
            for (const std::string& datagram : {reports[1], unknown}) {
                const auto sent = std::chrono::steady_clock::now();
                service.send(datagram, status_port);
                ASSERT_EQ(application.receive(), datagram);
                longest =
                    std::max<std::chrono::nanoseconds>(longest, std::chrono::steady_clock::now() - sent);
            }
            const std::string command = R"(!{"cmd":")" + std::to_string(i) + std::string(9000, ' ') + "\"}";
            application.send("", application.source);
            application.send(command, application.source);
            ASSERT_EQ(service.receive(), command);
            EXPECT_EQ(service.source, status_port);
        }
        RecordProperty("longest_us", static_cast<int>(longest / 1us));
        EXPECT_EQ(application.receive(0ms), "nothing");
        // Nobody is at the controls here, so the service hears of nobody but the application.
        EXPECT_EQ(service.receive(0ms), "nothing");
    }
}

TEST(Forwarding, TellsWhoAsksAtThePortWhereItIs) {
    const std::uint16_t status_port = free_status_port();
    const Gateway gateway{"--ring none --sticks none --status-port " + std::to_string(status_port)};
    Peer asking;
    asking.send("?gateway", status_port);
    EXPECT_EQ(asking.receive(), "http://127.0.0.1:" + std::to_string(gateway.port));
}

// ---- What it is told to do ----

TEST(GatewayStart, RefusesWhatIsNotSafeOrCannotWork) {
    const fs::path folder{testing::TempDir()};
    const std::string good = folder / "token";
    const std::string open_to_all = folder / "open";
    fs::remove(good);
    const Result made = run(GATEWAY_PATH, "token " + good);
    EXPECT_EQ(made.output.size(), 65U);
    const Bytes written = contents(good);
    EXPECT_EQ((std::string{written.begin(), written.end()}), made.output);
    EXPECT_EQ(fs::status(good).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    std::ofstream{open_to_all} << made.output;
    const Peer holder;
    const struct {
        std::string options;
        int code;
        const char* said;
    } cases[] = {
        {"token " + good, 2, "File exists"},
        {"--listen 0.0.0.0:0", 2, "--token-file"},
        {"--listen [::]:0", 2, "--token-file"},
        {"--listen here", 2, "--listen"},
        {"--listen 127.0.0.1:0 --token-file " + open_to_all, 2, "others may read it"},
        {"--listen 127.0.0.1:0 --token-file /nonexistent", 2, "No such file"},
        {"--listen 127.0.0.1:0 --cert " + good + " --key " + good, 2, "PEM"},
        {"--forward nowhere.invalid:1", 2, "--forward"},
        {"--forward 127.0.0.1", 2, "--forward"},
        {"--status-port " + std::to_string(holder.port), 3, "is held by"},
        {"--status-port 0", 64, "--status-port"},
        {"--cert x", 64, "--key"},
        {"serve", 64, "serve"},
    };
    for (const auto& c : cases) {
        const std::string port = c.code == 3 ? "" : " --status-port " + std::to_string(free_status_port());
        const bool names_port =
            c.options.find("--status-port") != std::string::npos || c.options.starts_with("token");
        const Result result = run(GATEWAY_PATH, c.options + (names_port ? "" : port) + " 2>&1");
        EXPECT_EQ(result.code, c.code) << c.options << result.output;
        EXPECT_THAT(result.output, HasSubstr(c.said)) << c.options;
    }
}

TEST(GatewayStart, SpeaksTlsWithACertificate) {
    const std::string folder{testing::TempDir()};
    const std::string key = folder + "/gateway-key.pem";
    const std::string certificate = folder + "/gateway-cert.pem";
    ASSERT_EQ(
        run("/usr/bin/openssl", "req -x509 -newkey rsa:2048 -nodes -subj /CN=localhost -days 2 -keyout " +
                                    key + " -out " + certificate + " 2>/dev/null")
            .code,
        0);
    const Gateway gateway{"--ring none --sticks none --status-port " + std::to_string(free_status_port()) +
                          " --cert " + certificate + " --key " + key};
    EXPECT_THAT(gateway.said, HasSubstr("https://127.0.0.1:"));
    const Result reply =
        run("/bin/sh",
            "-c 'printf \"GET /healthz HTTP/1.1\\r\\nHost: localhost\\r\\nConnection: close\\r\\n\\r\\n\" | "
            "timeout 30 openssl s_client -quiet -verify_return_error -CAfile " +
                certificate + " -connect 127.0.0.1:" + std::to_string(gateway.port) + " 2>/dev/null'");
    EXPECT_THAT(reply.output, HasSubstr("link down\n"));
}

// ---- Beside the service ----

class GatewayBesideService : public Ctl {
  protected:
    static std::string options() {
        return "--board " + stage().file("") + " --sticks " +
               stage().service().board().shm_name(ardenvue::rc_raw_state_name) + " ";
    }
    static void wait_until_live(const Gateway& gateway) {
        EXPECT_TRUE(eventually([&] { return gateway.ask("GET /healthz").body == "link live\n"; }));
    }
    static std::array<double, 3> inputs() {
        const std::string name = stage().service().board().shm_name(ardenvue::rc_raw_state_name);
        const FileDescriptor record{shm_open(name.c_str(), O_RDONLY | O_CLOEXEC, 0)};
        std::array<double, 3> read{};
        EXPECT_EQ(pread(record.get(), read.data(), sizeof read, offsetof(ardenvue::RcRawState, motion_input)),
                  static_cast<ssize_t>(sizeof read));
        return read;
    }
    static bool camera_has(const std::string& meaning) {
        return std::ranges::any_of(stage().camera().commands(),
                                   [&](const auto& c) { return c.meaning == meaning; });
    }
    static std::string control_of(const HttpReply& taken) {
        return "X-Ardenvue-Control: " + at(taken.json(), "token");
    }
};

TEST_F(GatewayBesideService, SendsCommandsAndSaysWhatBecameOfThem) {
    const Gateway gateway{options()};
    wait_until_live(gateway);
    EXPECT_EQ(at(gateway.ask("GET /api/state").json(), "camera.model"), "Phantom 4 Pro");
    const struct {
        const char* body;
        int status;
        const char* path;
        const char* value;
    } cases[] = {
        {R"({"words":"iso 1600","wait":20})", 200, "result", "confirmed"},
        {R"({"words":"iso 1600","wait":20})", 200, "result", "was there"},
        {R"({"words":"ev +0.30","wait":20})", 200, "words", "ev 0.3"},
        {R"({"words":"gimbal mode fpv","wait":20})", 200, "result", "sent"},
        {"  iso 200\n", 200, "reported_in", "iso_set"},
        {R"({"json":{"cmd":"x"}})", 200, "words", R"({"cmd":"x"})"},
        {"iso 450", 400, "error", nullptr},
        {R"({"words":"iso 200","json":{}})", 400, "error", nullptr},
        {R"({"json":[1]})", 400, "error", nullptr},
        {R"({"words":)", 400, "error", nullptr},
        {"", 400, "error", nullptr},
    };
    for (const auto& c : cases) {
        const HttpReply reply = gateway.ask("POST /api/command", c.body);
        EXPECT_EQ(reply.status, c.status) << c.body;
        const std::string value = at(reply.json(), c.path);
        EXPECT_TRUE(c.value == nullptr ? !value.empty() : value == c.value) << c.body << reply.body;
    }
    EXPECT_TRUE(stage().camera_got("iso 1600"));
    const HttpReply description = gateway.ask("GET /api/openapi.json");
    for (const char* path :
         {"/api/state", "/api/events", "/api/commands", "/api/command", "/api/control", "/api/sticks",
          "/video.mp4", "/snapshot.mp4", "/api/openapi.json", "/metrics", "/healthz"}) {
        EXPECT_THAT(description.body, HasSubstr("\"" + std::string{path} + "\"")) << path;
    }
    EXPECT_TRUE(description.json());
    EXPECT_THAT(gateway.ask("GET /metrics").body, HasSubstr("ardenvue_link_state{state=\"live\"} 1\n"));
}

TEST_F(GatewayBesideService, TheClientGoesByWayOfItAndSaysWhatItSays) {
    const std::string token_file = stage().file("client-token");
    const std::string token = run(GATEWAY_PATH, "token " + token_file).output;
    auto gateway = std::make_unique<Gateway>(options() + "--token-file " + token_file);
    const std::string url = "http://127.0.0.1:" + std::to_string(gateway->port);
    const std::string by_port = "--board " + stage().file("");
    const std::string far = "--gateway " + url;
    const std::string known = " --token-file " + token_file;
    const struct {
        std::string arguments;
        int code;
        const char* said;
    } cases[] = {
        {by_port + known + " status", ctl::done, "Phantom 4 Pro"},
        {far + "/" + known + " send iso 3200 --wait=20", ctl::done, "confirmed"},
        {by_port + known + " monitor --lines --seconds 2", ctl::done, "link up"},
        {far + " status", ctl::unusable, "takes the gateway's token"},
        {far + " --token-file " + stage().file("env") + " send iso 100", ctl::unusable, "the token is wrong"},
        {"--gateway http://127.0.0.1:1 status", ctl::unusable, "connect"},
        {"--gateway file:///etc/passwd status", ctl::unusable, "file"},
    };
    for (const auto& c : cases) {
        const Result result = run_ctl(c.arguments);
        EXPECT_EQ(result.code, c.code) << c.arguments << result.output;
        EXPECT_THAT(result.output, HasSubstr(c.said)) << c.arguments;
    }
    // On a machine that is busy a link may not be live at once.
    EXPECT_TRUE(eventually([&] {
        const Result state = run_ctl(far + known + " status --json");
        return state.code == ctl::done && state.output.find(R"("link":{"state":"live")") != std::string::npos;
    }));

    // What others send to the client's own port is not sent on with its token.
    const std::string right = "Authorization: Bearer " + token.substr(0, 64);
    {
        Peer link;
        const Peer stranger;
        ctl::GatewayBridge bridge{{url, token.substr(0, 64)}, link.port};
        EXPECT_NE(link.receive(), "nothing");
        stranger.send(R"(!{"cmd":"shutter","param":"1/8000"})", link.source);
        link.send(R"(!{"cmd":"shutter","param":"1/1000"})", link.source);
        EXPECT_TRUE(bridge.wait_for_answers(1));
        EXPECT_TRUE(stage().camera_got("shutter 1/1000"));
        EXPECT_FALSE(camera_has("shutter 1/8000"));
    }

    gateway->ask("POST /api/control", R"({"action":"take","name":"phone"})", {right});
    const Result refused = run_ctl(by_port + known + " send iso 100");
    EXPECT_EQ(refused.code, ctl::unusable);
    EXPECT_THAT(refused.output, HasSubstr("phone has the controls"));

    // A gateway that comes back is taken up again.
    std::FILE* const watching =
        popen(("exec " CTL_PATH " " + far + known + " status --watch --json").c_str(), "re");
    std::string line(9000, '\0');
    EXPECT_NE(std::fgets(line.data(), static_cast<int>(line.size()), watching), nullptr);
    const std::uint16_t port = gateway->port;
    gateway.reset();
    gateway = std::make_unique<Gateway>(options() + "--token-file " + token_file, port);
    // More lines than had come before.
    for (int i = 0; i < 5; ++i) {
        ASSERT_NE(std::fgets(line.data(), static_cast<int>(line.size()), watching), nullptr) << i;
    }
    EXPECT_THAT(line, HasSubstr(R"("state":"live")"));
    pclose(watching);
}

TEST_F(GatewayBesideService, OneHandHasTheControlsAndTheSticksFallToZeroWithoutIt) {
    const Gateway gateway{options()};
    wait_until_live(gateway);
    Http listener{gateway.port};
    listener.send(request_text("GET /api/events", "", {}));

    const HttpReply phone = gateway.ask("POST /api/control", R"({"action":"take","name":"phone"})");
    EXPECT_EQ(phone.status, 200);
    const std::string laptop_takes = R"({"action":"take","name":"laptop"})";
    EXPECT_EQ(at(gateway.ask("POST /api/control", laptop_takes).json(), "holder"), "phone");
    EXPECT_EQ(gateway.ask("POST /api/command", "iso 800").status, 409);
    EXPECT_EQ(gateway.ask("POST /api/command", "iso 800", {control_of(phone)}).status, 200);
    EXPECT_EQ(gateway.ask("POST /api/control", R"({"action":"renew"})", {control_of(phone)}).status, 200);
    const HttpReply laptop =
        gateway.ask("POST /api/control", R"({"action":"take","name":"laptop","force":true})");
    EXPECT_TRUE(listener.read_until_says(R"("taken_from":"phone")"));
    for (const char* path : {"POST /api/command", "POST /api/sticks"}) {
        EXPECT_EQ(gateway.ask(path, R"({"words":"iso 800"})", {control_of(phone)}).status, 409) << path;
    }

    // Held for a while, then let go of without a word: the service reads zeros before a third of a second is
    // over.
    const std::string deflection = R"({"pan":0.5,"tilt":-3,"roll":"x"})";
    auto posted = std::chrono::steady_clock::now();
    EXPECT_TRUE(eventually([&] {
        posted = std::chrono::steady_clock::now();
        EXPECT_EQ(gateway.ask("POST /api/sticks", deflection, {control_of(laptop)}).status, 200);
        return inputs() == std::array<double, 3>{0.5, -1, 0};
    }));
    EXPECT_TRUE(eventually([&] { return inputs() == std::array<double, 3>{}; }));
    RecordProperty("zero_after_ms", static_cast<int>((std::chrono::steady_clock::now() - posted) / 1ms));

    // Who says nothing for five seconds no longer has them.
    EXPECT_TRUE(listener.read_until_says(R"("holder":null)"));
    EXPECT_TRUE(eventually([&] { return at(gateway.ask("GET /api/control").json(), "holder") == "null"; }));
    EXPECT_EQ(gateway.ask("POST /api/command", "iso 800", {control_of(laptop)}).status, 403);
    EXPECT_EQ(gateway.ask("POST /api/sticks", deflection).status, 403);
}

TEST_F(GatewayBesideService, LetsInWhoMayComeIn) {
    const std::string token_file = stage().file("token");
    fs::remove(token_file);
    std::string token = run(GATEWAY_PATH, "token " + token_file).output;
    token.pop_back();
    const std::string right = "Authorization: Bearer " + token;
    const Gateway gateway{
        options() + "--open-reading --allow-host drone --allow-origin https://fleet.example --token-file " +
        token_file};
    wait_until_live(gateway);
    const struct {
        const char* line;
        Headers headers;
        int status;
    } cases[] = {
        {"GET /api/state", {}, 200},
        {"GET /", {}, 200},
        {"GET /api/state", {"Host: 192.0.2.1:8040"}, 200},
        {"GET /api/state", {"Host: [::1]:8040"}, 200},
        {"GET /api/state", {"Host: Drone:80"}, 200},
        {"GET /api/state", {"Host: elsewhere.example"}, 403},
        {"GET /", {"Host: elsewhere.example"}, 403},
        {"GET /api/state", {"Origin: http://localhost"}, 200},
        {"GET /api/state", {"Origin: https://elsewhere.example"}, 403},
        {"GET /api/state", {"Origin: null"}, 403},
        {"GET /api/state", {"Origin: https://fleet.example"}, 200},
        {"OPTIONS /api/command", {"Origin: https://fleet.example"}, 204},
        {"OPTIONS /api/command", {}, 401},
        {"POST /api/command", {}, 401},
        {"POST /api/command", {right}, 400},
        {"POST /api/command", {right, "Origin: https://elsewhere.example"}, 403},
        {"DELETE /api/state", {right}, 405},
        {"POST /", {right}, 405},
        {"GET /nothing", {}, 404},
        {"GET /../etc/passwd", {}, 404},
        {"HEAD /video.mp4", {}, 200},
    };
    for (const auto& c : cases) {
        const HttpReply reply = gateway.ask(c.line, "", c.headers);
        EXPECT_EQ(reply.status, c.status) << c.line << testing::PrintToString(c.headers) << reply.body;
        EXPECT_THAT(reply.head, HasSubstr("Content-Security-Policy: default-src 'none'")) << c.line;
        const bool is_fleet = !c.headers.empty() && c.headers[0].find("fleet") != std::string::npos;
        EXPECT_EQ(reply.head.find("Access-Control-Allow-Origin") != std::string::npos, is_fleet) << c.line;
    }
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(
            gateway.ask("POST /api/command", "iso 100", {"Authorization: Bearer " + std::string(64, '0')})
                .status,
            401);
    }
    EXPECT_EQ(gateway.ask("POST /api/command", "iso 100", {right}).status, 429);
    EXPECT_EQ(gateway.ask("GET /api/state").status, 200);
}

TEST_F(GatewayBesideService, StreamsToManyAndDropsWhoStandsStill) {
    const Gateway gateway{options()};
    wait_until_live(gateway);
    EXPECT_TRUE(eventually([&] { return gateway.ask("GET /snapshot.mp4").status == 200; }));
    const std::string video = request_text("GET /video.mp4", "", {});
    Http slow{gateway.port};  // a byte of a request now and then
    slow.send("GET /healthz HTTP/1.1\r\nX-");
    std::vector<std::unique_ptr<Http>> viewers;
    for (int i = 0; i < 32; ++i) {
        viewers.push_back(std::make_unique<Http>(gateway.port));
        viewers.back()->send(video);
        EXPECT_TRUE(viewers.back()->read_until_says("moof")) << i;
    }
    EXPECT_EQ(gateway.ask("GET /video.mp4").status, 503);
    // All but the first go on reading, of whom some leave in the middle.
    std::atomic<bool> stops{false};
    std::thread reading{[&] {
        while (!stops) {
            slow.send("x");
            for (std::size_t i = 1; i < viewers.size(); ++i) {
                char buffer[65'536];
                if (recv(viewers[i]->descriptor(), buffer, sizeof buffer, MSG_DONTWAIT) == 0) {
                    ADD_FAILURE() << "viewer " << i << " was dropped";
                    stops = true;
                }
            }
            std::this_thread::sleep_for(20ms);
        }
    }};
    EXPECT_TRUE(eventually([&] {
        return gateway.ask("GET /metrics").body.find("ardenvue_clients{kind=\"video\"} 31\n") !=
               std::string::npos;
    }));
    stops = true;
    reading.join();
    EXPECT_TRUE(slow.closes());
    viewers.resize(4);
    EXPECT_TRUE(eventually([&] {
        return gateway.ask("GET /metrics").body.find("ardenvue_clients{kind=\"video\"} 3\n") !=
               std::string::npos;
    }));
}

TEST_F(GatewayBesideService, BoundsWhatItIsSent) {
    const Gateway gateway{options()};
    EXPECT_EQ(gateway.ask("POST /api/command", std::string(20'000, 'x')).status, 413);
    EXPECT_EQ(gateway.ask("POST /api/control", std::string(9'000, '[')).status, 400);
    for (const std::string& hostile :
         {"GET / HTTP/1.1\r\nHost: localhost\r\nX: " + std::string(100'000, 'x') + "\r\n\r\n",
          "GET /" + std::string(100'000, 'x') + " HTTP/1.1\r\n\r\n",
          std::string{"POST /api/command HTTP/1.1\r\nHost: localhost\r\nContent-Length: -1\r\n\r\n"},
          std::string{
              "POST /api/command HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n"},
          std::string{"GET /api/state HTTP/1.1\r\n\r\n"}}) {
        Http http{gateway.port};
        http.send(hostile);
        EXPECT_TRUE(http.read_until_says("HTTP/1.1 4") || http.is_closed) << hostile.substr(0, 40);
    }
    EXPECT_EQ(gateway.ask("GET /api/state").status, 200);
}

TEST_F(GatewayBesideService, AListenerThatComesBackHearsWhatItMissed) {
    const Gateway gateway{options()};
    wait_until_live(gateway);
    gateway.ask("POST /api/command", "iso 100");
    Http first{gateway.port};
    first.send(request_text("GET /api/events?reports=1", "", {}));
    EXPECT_TRUE(first.read_until_says("event: report\ndata: "));
    EXPECT_TRUE(first.read_until_says("event: state\ndata: {\"format\":1"));
    // Of what a newcomer hears at once, the commands of old are no part.
    EXPECT_EQ(first.text.substr(0, first.text.find("event: state")).find("iso 100"), std::string::npos);
    const std::size_t id = first.text.rfind("id: ");
    const std::string last_id = first.text.substr(id + 4, first.text.find('\n', id) - id - 4);
    gateway.ask("POST /api/command", "iso 6400");
    Http again{gateway.port};
    again.send(request_text("GET /api/events", "", {"Last-Event-ID: " + last_id}));
    EXPECT_TRUE(again.read_until_says(R"({"words":"iso 6400","result":"sent","by":""})"));
}

}  // namespace
}  // namespace gateway_stage
