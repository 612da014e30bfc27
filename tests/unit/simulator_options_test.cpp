// What people type to the simulator.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/fault_plan.h"
#include "sim/run_command.h"

namespace {

using testing::HasSubstr;

TEST(Faults, ThatMakeNoSenseAreRefused) {
    const struct {
        const char* text;
        const char* complaint;
    } cases[] = {
        {"", "unknown"},
        {"fire", "unknown"},
        {"unplug", "needs a time"},
        {"silence:3", "needs a time"},
        {"unplug@", "not a number"},
        {"unplug@x", "not a number"},
        {"unplug@1:", "not a number"},
        {"silence@1:2s", "not a number"},
        {"silence@-1:2", "not a number"},
        {"silence@nan:2", "not a number"},
        {"silence@1:1e300", "not a number"},
        {"garbage:0", "1 to 480 bytes"},
        {"garbage:481", "1 to 480 bytes"},
        {"garbage@1", "takes no time"},
        {"corrupt@1", "takes no time"},
        {"corrupt:1", "takes no number"},
    };
    for (const auto& test : cases) {
        sim::FaultPlan plan;
        EXPECT_THAT(sim::add_fault(test.text, plan), HasSubstr(test.complaint)) << test.text;
        EXPECT_TRUE(plan.interruptions.empty());
    }
}

// Other programs learn from this where the status datagrams go.
TEST(StatusPort, IsTheOneThatTheServiceTakes) {
    EXPECT_EQ(sim::status_port({}), "5000");
    EXPECT_EQ(sim::status_port({"-v", "-s", "6001"}), "6001");
    EXPECT_EQ(sim::status_port({"-s6001", "-d", "127.0.0.2"}), "6001");
    EXPECT_EQ(sim::status_port({"-s", "1", "--dst-port", "6001"}), "6001");
    EXPECT_EQ(sim::status_port({"--dst-port=6001"}), "6001");
    EXPECT_EQ(sim::status_port({"-s"}), "5000");
}

}  // namespace
