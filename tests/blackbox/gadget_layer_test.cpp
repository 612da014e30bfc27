// The gadget layer with a device that is not the service's, and its diagnostic lines, which the service never
// turns on.
#include "sim/board/board.h"
#include "tests/blackbox/harness.h"
#include "tests/blackbox/says_in_order.h"

namespace {
using namespace blackbox;
using sim::ControlStatus;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr sim::SetupPacket select_configuration = {0x00, 9, 3, 0, 0};
constexpr sim::SetupPacket deselect = {0x00, 9, 0, 0, 0};

// The probe on a board of its own.
struct Probe {
    Probe(const char* debug_level, const char* kind) : board{{.library = BOARD_LIBRARY_PATH}} {
        board.start({PROBE_PATH, {debug_level, kind}, {}, ""});
    }
    void plug() {
        ASSERT_TRUE(board.cable().wait_for_device(patience)) << board.errors();
        ASSERT_TRUE(board.cable().plug(sim::Speed::high));
    }
    sim::ControlResult ask(const sim::SetupPacket& setup) {
        return board.cable().control_past_kernel(setup, patience);
    }
    void suspend() { ASSERT_TRUE(board.cable().inject({sim::suspend_event()}, patience)); }

    sim::Board board;
};

TEST(GadgetLayer, TellsWhatItDoes) {
    Probe probe{"2", "high"};
    ASSERT_NO_FATAL_FAILURE(probe.plug());
    ASSERT_TRUE(probe.board.cable().inject({sim::disconnect_event(), sim::connect_event(sim::Speed::high)},
                                           patience));
    EXPECT_EQ(probe.ask({0x00, 9, 2, 0, 0}).status, ControlStatus::stalled);
    probe.board.cable().refuse_configuration("ep2out", EIO);
    EXPECT_EQ(probe.ask(select_configuration).status, ControlStatus::stalled);
    EXPECT_EQ(probe.ask(deselect).status, ControlStatus::acknowledged);
    EXPECT_EQ(probe.ask(select_configuration).status, ControlStatus::acknowledged);
    EXPECT_THAT(probe.board.cable().open_endpoints(), ElementsAre("ep1in", "ep2out"));
    EXPECT_EQ(probe.ask(select_configuration).status, ControlStatus::stalled);
    EXPECT_EQ(probe.ask({0x01, 11, 0, 0, 0}).status, ControlStatus::acknowledged);
    probe.suspend();
    ASSERT_TRUE(probe.board.wait_for("probe: read 513 gives -1\n", patience));
    EXPECT_EQ(probe.ask(deselect).status, ControlStatus::acknowledged);
    probe.suspend();
    ASSERT_TRUE(probe.board.wait_for("probe: read 513 gives -1\n", patience, 2));

    const std::string layer = "libusb-gadget: ";
    const std::string setup = layer + "setup: ctrl->bRequestType = 0, ctrl->bRequest = 9, ctrl->wValue = ";
    const std::string no_index = ", ctrl->wIndex = 0, ctrl->wLength = 0\n";
    EXPECT_THAT(
        probe.board.errors(),
        SaysInOrder({
            layer + "2 events received\n" + layer + "event 2\nprobe: event 3 of 0\n" + layer + "event 1\n" +
                layer + "connected with speed 3\nprobe: event 2 of 0\n",
            // A configuration that is not there, and one of which a file refuses.
            layer + "event 3\n" + setup + "2" + no_index + layer + "setup: set_config failed\n",
            setup + "3" + no_index + layer + "set_config: ep1in opened\nprobe: event 0 of 1\n" + layer +
                "open_ep: can't write config\n" + layer + "set_config: ep2out open failed\n" + layer +
                "setup: set_config failed\n",
            setup + "0" + no_index + "probe: event 1 of 1\n",
            // Selected, and once more.
            setup + "3" + no_index + layer + "set_config: ep1in opened\nprobe: event 0 of 1\n" + layer +
                "set_config: ep2out opened\nprobe: event 0 of 2\n",
            setup + "3" + no_index + layer + "set_config: find_ep failed\n" + layer +
                "setup: set_config failed\n",
            layer + "setup: clear halt ep2out ",
            " 0\n" + layer + "setup: clear halt ep1in ",
            " 0\n",
            layer + "event 4\nprobe: event 4 of 0\nprobe: write 65 gives 65\nprobe: write 512 gives 512\n" +
                layer + "usb_gadget_endpoint_write: too long message\nprobe: write 513 gives -1 EINVAL\n" +
                layer + "usb_gadget_endpoint_read: too long message\n",
            // The newest first; a closed endpoint has no name any more.
            "probe: event 1 of 2\nprobe: event 1 of 1\n",
            layer + "usb_gadget_endpoint_write:  is closed\nprobe: write 65 gives -1 EINVAL\n",
            layer + "usb_gadget_endpoint_read:  is closed\n",
        }));
}

TEST(GadgetLayer, ServesADeviceWithoutHighSpeed) {
    Probe probe{"1", "full"};
    ASSERT_NO_FATAL_FAILURE(probe.plug());
    EXPECT_EQ(probe.board.cable().device_configuration(),
              (Bytes{0x00, 0x00, 0x00, 0x00,                                //
                     0x09, 0x02, 0x20, 0x00, 0x01, 0x03, 0x00, 0xC0, 0x01,  //
                     0x09, 0x04, 0x00, 0x00, 0x02, 0xFF, 0x00, 0x00, 0x00,  //
                     0x07, 0x05, 0x81, 0x02, 0x40, 0x00, 0x00,              //
                     0x07, 0x05, 0x02, 0x02, 0x40, 0x00, 0x00,              //
                     0x12, 0x01, 0x00, 0x02, 0xFF, 0x00, 0x00, 0x00, 0x34,  //
                     0x12, 0x78, 0x56, 0x00, 0x01, 0x00, 0x01, 0x00, 0x01}));
    EXPECT_EQ(probe.ask(select_configuration).status, ControlStatus::acknowledged);
    EXPECT_THAT(probe.board.cable().endpoint_configurations(),
                ElementsAre(Bytes{0x01, 0x00, 0x00, 0x00, 0x07, 0x05, 0x81, 0x02, 0x40, 0x00, 0x00},
                            Bytes{0x01, 0x00, 0x00, 0x00, 0x07, 0x05, 0x02, 0x02, 0x40, 0x00, 0x00}));
    EXPECT_EQ(probe.ask({0x80, 6, 0x0200, 0, 18}).data,
              (Bytes{0x09, 0x02, 0x20, 0x00, 0x01, 0x03, 0x00, 0xC0, 0x01,  //
                     0x09, 0x04, 0x00, 0x00, 0x02, 0xFF, 0x00, 0x00, 0x00}));
    EXPECT_EQ(probe.ask({0x80, 6, 0x0300, 0, 255}).data, (Bytes{4, 3, 0x07, 0x04}));
    EXPECT_EQ(probe.ask({0x80, 6, 0x0301, 0, 255}).data, (Bytes{4, 3, 0xE9, 0x00}));
    EXPECT_EQ(probe.ask({0x80, 6, 0x0302, 0, 255}).status, ControlStatus::stalled);  // four bytes of UTF-8
    probe.suspend();
    EXPECT_TRUE(probe.board.wait_for("probe: write 65 gives -1 EINVAL\n", patience));
    // No diagnostics below level 2.
    EXPECT_THAT(probe.board.errors(), Not(HasSubstr("libusb-gadget")));
}

TEST(GadgetLayer, RefusesAListWithoutConfiguration) {
    Probe probe{"2", "faulty"};
    ASSERT_TRUE(probe.board.wait_for_end(patience));
    EXPECT_EQ(probe.board.errors(), "probe: open failed EINVAL\n");
}
}  // namespace
