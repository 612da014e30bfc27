// The device as the host sees it: its descriptors, its answer to every control request, and what becomes of
// the link when the host selects, deselects and resets.
#include "tests/blackbox/harness.h"

namespace {
using namespace blackbox;
using sim::ControlStatus;
using testing::ElementsAre;

constexpr ControlStatus ack = ControlStatus::acknowledged;
constexpr ControlStatus stall = ControlStatus::stalled;

const Bytes device_descriptor = {0x12, 0x01, 0x00, 0x02, 0xFF, 0x00, 0x00, 0x00, 0xD1,
                                 0x18, 0x00, 0x2D, 0x00, 0x00, 0x19, 0x2D, 0x65, 0x01};
const Bytes high_speed_configuration = {0x09, 0x02, 0x20, 0x00, 0x01, 0x02, 0xFA, 0xC0, 0x01, 0x09, 0x04,
                                        0x00, 0x00, 0x02, 0xFF, 0x00, 0x00, 0xFA, 0x07, 0x05, 0x86, 0x02,
                                        0x00, 0x02, 0x00, 0x07, 0x05, 0x02, 0x02, 0x00, 0x02, 0x00};

Bytes first(const Bytes& bytes, std::size_t size) {
    return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)};
}

// An ASCII text as USB 2.0, 9.6.7 has it.
Bytes string_descriptor(std::string_view text) {
    Bytes bytes = {static_cast<std::uint8_t>(2 + 2 * text.size()), 3};
    for (const char character : text) {
        bytes.push_back(static_cast<std::uint8_t>(character));
        bytes.push_back(0);
    }
    return bytes;
}

struct Row {
    sim::SetupPacket setup;
    ControlStatus status;
    Bytes data = {};
};

constexpr sim::SetupPacket select_configuration = {0x00, 9, 2, 0, 0};
constexpr sim::SetupPacket deselect = {0x00, 9, 0, 0, 0};

// Asks the service itself, also what a kernel would answer on its own.
void expect_answers(Service& service, const std::vector<Row>& rows) {
    for (const auto& [setup, status, data] : rows) {
        const sim::ControlResult result = service.cable().control_past_kernel(setup, patience);
        const std::string request = testing::PrintToString(
            std::vector<int>{setup.request_type, setup.request, setup.value, setup.index, setup.length});
        EXPECT_EQ(result.status, status) << request;
        EXPECT_EQ(result.data, data) << request;
    }
}

// Takes up the cable, and has the service know of it.
void plug(Service& service) {
    ASSERT_TRUE(service.cable().wait_for_device(patience)) << service.board().errors();
    ASSERT_TRUE(service.cable().plug(sim::Speed::high));
}

// Each configuration that is selected starts the watchdog's five seconds anew, so they stand in between.
TEST(UsbControl, AnswersEveryRequest) {
    Service service;
    ASSERT_NO_FATAL_FAILURE(plug(service));
    expect_answers(service, {
                                // Descriptors, cut to the length asked for.
                                {{0x80, 6, 0x0100, 0, 18}, ack, device_descriptor},
                                {{0x80, 6, 0x0100, 0, 8}, ack, first(device_descriptor, 8)},
                                {{0x80, 6, 0x0100, 0, 64}, ack, device_descriptor},
                                {{0x80, 6, 0x0200, 0, 9}, ack, first(high_speed_configuration, 9)},
                                {{0x80, 6, 0x0200, 0, 255}, ack, high_speed_configuration},
                                {{0x80, 6, 0x0300, 0, 255}, ack, {0x04, 0x03, 0x09, 0x04}},
                                {{0x80, 6, 0x0319, 0x0409, 255}, ack, string_descriptor("Ardenvue")},
                                {{0x80, 6, 0x032D, 0x0409, 255}, ack, string_descriptor("Ardenvue USB")},
                                {{0x80, 6, 0x0365, 0x0409, 255}, ack, string_descriptor("00000000")},
                                {{0x80, 6, 0x03FA, 0x0409, 255}, ack, string_descriptor("The loopback")},
                                {{0x80, 6, 0x03FA, 0x0409, 2}, ack, {26, 3}},
                                {{0x80, 6, 0x0301, 0x0409, 255}, stall},  // no such string
                                {{0x80, 6, 0x0400, 0, 9}, stall},         // interface
                                {{0x80, 6, 0x0600, 0, 10}, stall},        // device qualifier
                                {{0x81, 6, 0x2200, 0, 64}, stall},        // of an interface
                                {{0x00, 6, 0x0100, 0, 0}, stall},         // in the wrong direction
                                {select_configuration, ack},
                                {select_configuration, stall},  // its files are taken
                                                                // Alternate settings.
                                {{0x81, 10, 0, 0, 1}, ack, {0x00}},
                                {{0x81, 10, 0, 0, 0}, ack},
                                {{0x81, 10, 0, 1, 1}, stall},
                                {{0x81, 10, 0, 0, 2}, stall},
                                {{0x80, 10, 0, 0, 1}, stall},
                                {{0x01, 11, 1, 0, 0}, stall},
                                {{0x01, 11, 0, 1, 0}, stall},
                                {{0x00, 11, 0, 0, 0}, stall},
                                {deselect, ack},
                                {{0x01, 11, 0, 0, 0}, ack},  // without endpoints
                                {select_configuration, ack},
                                // Configurations that are not there.
                                {deselect, ack},
                                {{0x00, 9, 1, 0, 0}, stall},
                                {{0x00, 9, 0x0102, 0, 0}, stall},
                                {{0x01, 9, 2, 0, 0}, stall},
                                {{0x80, 9, 2, 0, 0}, stall},
                                // What only kernels answer, and what nobody does.
                                {{0x80, 0, 0, 0, 2}, stall},
                                {{0x02, 1, 0, 0x86, 0}, stall},
                                {{0x00, 3, 1, 0, 0}, stall},
                                {{0x00, 5, 7, 0, 0}, stall},
                                {{0x00, 7, 0x0100, 0, 18}, ack},  // its data is the kernel's
                                {select_configuration, ack},
                                {{0x80, 8, 0, 0, 1}, stall},
                                {{0x82, 12, 0, 0x86, 2}, stall},
                                {{0x21, 11, 0, 0, 0}, stall},  // class requests
                                {{0xA0, 6, 0x0100, 0, 18}, stall},
                                {{0xC0, 6, 0x0100, 0, 18}, stall},  // vendor requests
                                {{0xC0, 51, 0, 0, 2}, stall},
                                {{0x40, 53, 0, 0, 0}, stall},
                            });
    EXPECT_EQ(service.cable().halts("ep6in") + service.cable().halts("ep2out"), 0U);
    EXPECT_TRUE(service.said("USB connected\n", 3));
}

TEST(UsbControl, LinkComesAndGoesWithTheConfiguration) {
    Service service;
    ASSERT_NO_FATAL_FAILURE(service.enumerate());
    EXPECT_TRUE(service.said("USB connected\n"));
    EXPECT_THAT(service.cable().open_endpoints(), ElementsAre("ep6in", "ep2out"));
    EXPECT_EQ(service.cable().device_configuration(),
              (Bytes{0x00, 0x00, 0x00, 0x00,                                //
                     0x09, 0x02, 0x20, 0x00, 0x01, 0x02, 0xFA, 0xC0, 0x01,  //
                     0x09, 0x04, 0x00, 0x00, 0x02, 0xFF, 0x00, 0x00, 0xFA,  //
                     0x07, 0x05, 0x86, 0x02, 0x40, 0x00, 0x00,              //
                     0x07, 0x05, 0x02, 0x02, 0x40, 0x00, 0x00,              //
                     0x09, 0x02, 0x20, 0x00, 0x01, 0x02, 0xFA, 0xC0, 0x01,  //
                     0x09, 0x04, 0x00, 0x00, 0x02, 0xFF, 0x00, 0x00, 0xFA,  //
                     0x07, 0x05, 0x86, 0x02, 0x00, 0x02, 0x00,              //
                     0x07, 0x05, 0x02, 0x02, 0x00, 0x02, 0x00,              //
                     0x12, 0x01, 0x00, 0x02, 0xFF, 0x00, 0x00, 0x00, 0xD1,  //
                     0x18, 0x00, 0x2D, 0x00, 0x00, 0x19, 0x2D, 0x65, 0x01}));
    EXPECT_THAT(service.cable().endpoint_configurations(),
                ElementsAre(Bytes{0x01, 0x00, 0x00, 0x00, 0x07, 0x05, 0x86, 0x02, 0x40, 0x00, 0x00, 0x07,
                                  0x05, 0x86, 0x02, 0x00, 0x02, 0x00},
                            Bytes{0x01, 0x00, 0x00, 0x00, 0x07, 0x05, 0x02, 0x02, 0x40, 0x00, 0x00, 0x07,
                                  0x05, 0x02, 0x02, 0x00, 0x02, 0x00}));

    // Deselected, with the reader waiting in its read, and selected again.
    expect_answers(service, {{deselect, ack}});
    EXPECT_TRUE(service.said("USB endpoint OUT disabled\nUSB endpoint IN disabled\n"));
    EXPECT_TRUE(eventually([&] { return service.cable().open_endpoints().empty(); }));
    expect_answers(service, {{select_configuration, ack}});
    EXPECT_TRUE(service.said("USB connected\n", 2));

    // A reset, then the host enumerates again. What is no event of ours changes nothing.
    sim::GadgetEvent unknown{};
    unknown[8] = 9;
    ASSERT_TRUE(service.cable().inject(
        {sim::suspend_event(), unknown, sim::disconnect_event(), sim::connect_event(sim::Speed::high)},
        patience));
    EXPECT_TRUE(service.said("USB disconnected\n", 2));  // the first was the reset at the first plugging
    EXPECT_TRUE(eventually([&] { return service.cable().open_endpoints().empty(); }));
    expect_answers(service, {{select_configuration, ack}});
    EXPECT_TRUE(service.said("USB connected\n", 3));
    EXPECT_THAT(service.cable().open_endpoints(), ElementsAre("ep6in", "ep2out"));

    // The reader is alive after all this: it takes what the host sends, and then lets commands out.
    ASSERT_TRUE(service.send(keep_alive_frame));
    EXPECT_GT(service.next_status().size(), 0U);
    EXPECT_THAT(service.board().errors(), testing::Not(testing::HasSubstr("read failed")));
}

TEST(UsbControl, SixEventsComeInTwoReads) {
    Service service;
    ASSERT_TRUE(service.cable().wait_for_device(patience));
    const sim::GadgetEvent down = sim::disconnect_event();
    const sim::GadgetEvent up = sim::connect_event(sim::Speed::high);
    ASSERT_TRUE(service.cable().inject({up, down, down, down, down, down}, patience));
    EXPECT_TRUE(service.said("USB disconnected\n", 5));
    EXPECT_EQ(service.cable().control_past_kernel({0x80, 6, 0x0300, 0, 4}, patience).status, ack);
}

TEST(UsbControl, EndpointFileThatRefusesStallsTheConfiguration) {
    Service service;
    ASSERT_NO_FATAL_FAILURE(plug(service));
    service.cable().refuse_configuration("ep2out", EINVAL);
    expect_answers(service, {{select_configuration, stall}});
    // What was opened before stays, and is in the way until it is deselected.
    EXPECT_THAT(service.cable().open_endpoints(), ElementsAre("ep6in"));
    expect_answers(service, {{select_configuration, stall}, {deselect, ack}});
    EXPECT_EQ(service.board().errors().find("USB connected"), std::string::npos);
    EXPECT_TRUE(service.said("USB endpoint IN disabled\n"));
    EXPECT_EQ(service.board().errors().find("USB endpoint OUT disabled"), std::string::npos);
    expect_answers(service, {{select_configuration, ack}});
    EXPECT_TRUE(service.said("USB connected\n"));
}

// What the kernel lets nobody stall, and a request that was given up for another, with the service between
// the two: each would leave the controller file without any further event.
TEST(UsbControl, EndsWhatCannotBeStalledOrAnswered) {
    Service service;
    ASSERT_NO_FATAL_FAILURE(plug(service));
    constexpr sim::SetupPacket asks_string = {0x80, 6, 0x0365, 0x0409, 255};
    const auto expect_string = [&] {
        expect_answers(service, {{asks_string, ack, string_descriptor("00000000")}});
    };
    EXPECT_EQ(service.cable().control({0x40, 0x34, 0, 0, 8}, patience).status, ack);
    std::this_thread::sleep_for(Milliseconds{400});  // the host takes its time
    expect_string();
    service.cable().refuse_configuration("ep2out", EINVAL);
    EXPECT_EQ(service.cable().control(select_configuration, patience).status, ack);
    expect_string();
    for (const sim::SetupPacket& given_up : {sim::SetupPacket{0x80, 6, 0x0300, 0, 255},  // answered with data
                                             sim::SetupPacket{0x01, 11, 0, 0, 0},        // acknowledged
                                             sim::SetupPacket{0x40, 1, 0, 0, 0},         // stalled
                                             sim::SetupPacket{0xC0, 1, 0, 0, 8}}) {
        ASSERT_TRUE(
            service.cable().inject({sim::setup_event(given_up), sim::setup_event(asks_string)}, patience));
        // One that comes while the service is still between the two is given up with them.
        ASSERT_TRUE(eventually(
            [&] { return service.cable().control_past_kernel(asks_string, patience).status == ack; }));
        expect_string();
    }
    EXPECT_EQ(service.cable().control(deselect, patience).status, ack);
    EXPECT_EQ(service.cable().control(select_configuration, patience).status, ack);
    ASSERT_TRUE(service.send(keep_alive_frame));
    EXPECT_GT(service.next_status().size(), 0U);
}

TEST(UsbControl, FindsEndpointFilesByTheirNames) {
    const struct {
        std::vector<std::string> files;
        std::vector<std::string> taken;  // in the order of opening; empty: the configuration is stalled
    } cases[] = {
        {{"ep6out", "ep2in", "ep6in-int", "ep2out-iso", "ep2out-bulk", "ep6-bulk", "ep16in"},
         {"ep6-bulk", "ep2out-bulk"}},
        {{"ep6in-int", "ep2out"}, {}},
        {{"ep6in", "ep3out"}, {}},
    };
    std::vector<std::unique_ptr<Service>> services;
    for (const auto& one : cases) {
        ServiceSetup setup;
        setup.board.endpoints = one.files;
        services.push_back(std::make_unique<Service>(setup));
    }
    for (std::size_t i = 0; i < services.size(); ++i) {
        ASSERT_NO_FATAL_FAILURE(plug(*services[i]));
        const bool fits = !cases[i].taken.empty();
        expect_answers(*services[i], {{select_configuration, fits ? ack : stall}});
        if (fits) {
            EXPECT_EQ(services[i]->cable().open_endpoints(), cases[i].taken);
        }
    }
}

// Files that can serve any endpoint can be opened a second time over, beside the ones already open: the
// reader then moves to the new ones, and the old ones are closed.
TEST(UsbControl, SecondConfigurationOnFilesThatServeAnyEndpoint) {
    ServiceSetup setup;
    setup.board.endpoints = {"ep-a", "ep-b", "ep-c", "ep-d"};
    Service service{setup};
    ASSERT_NO_FATAL_FAILURE(plug(service));
    expect_answers(service, {{select_configuration, ack}});
    const std::vector<std::string> before = service.cable().open_endpoints();
    EXPECT_EQ(before.size(), 2U);
    expect_answers(service, {{select_configuration, ack}});
    EXPECT_TRUE(service.said("USB connected\n", 2));
    EXPECT_TRUE(eventually([&] { return service.cable().open_endpoints().size() == 2; }));
    EXPECT_NE(service.cable().open_endpoints(), before);
    ASSERT_TRUE(service.send(keep_alive_frame));
    EXPECT_GT(service.next_status().size(), 0U);
}
}  // namespace
