// The limit of waiting on a clock of the test's own.
#include "usb/wait_budget.h"

#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace {
using namespace std::chrono_literals;
using Time = WaitBudget::Clock::time_point;

TEST(WaitBudget, AStallUsesItUpForAMinute) {
    WaitBudget budget;
    const Time end{1'000'999ms};  // of a wait of 2 s, late in its second
    EXPECT_TRUE(budget.lets_in(end - 2s));
    budget.spend(end, 2'010ms);  // a wait may end late
    EXPECT_EQ(budget.left(end), 0s);
    EXPECT_EQ(budget.left(end + 60s), 0s);
    EXPECT_FALSE(budget.lets_in(end + 60s));
    EXPECT_EQ(budget.left(end + 61s), 2s);
}

// Whatever is waited as long as it is allowed: in no minute more than the limit, and it comes back.
TEST(WaitBudget, NoMinuteHoldsMoreThanTheLimit) {
    struct Wait {
        Time begin;
        Time end;
    };
    for (const unsigned longest : {30U, 900U, 5'000U}) {
        std::mt19937 random{7};
        WaitBudget budget;
        std::vector<Wait> waits;
        WaitBudget::Duration sum{0};
        for (Time now{5s}; now < Time{600s};) {
            const Time begin = now;
            now += std::min(budget.left(now),
                            WaitBudget::Duration{std::chrono::milliseconds{1 + random() % longest}});
            budget.spend(now, std::chrono::duration_cast<WaitBudget::Duration>(now - begin));
            waits.push_back({begin, now});
            sum += std::chrono::duration_cast<WaitBudget::Duration>(now - begin);
            now += std::chrono::milliseconds{random() % 400};
        }
        EXPECT_GE(sum, 16s) << longest;
        for (const Wait& last : waits) {
            std::chrono::nanoseconds within{0};
            for (const Wait& wait : waits) {
                within += std::max(std::min(wait.end, last.end) - std::max(wait.begin, last.end - 60s),
                                   std::chrono::nanoseconds{0});
            }
            ASSERT_LE(within, WaitBudget::limit) << longest;
        }
    }
}
}  // namespace
