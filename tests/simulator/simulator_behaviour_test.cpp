// Orders and pace: the behaviour of a device manager that changes while it runs.
#include "simulator/simulator_behaviour.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using std::chrono::milliseconds;

// "delay 1.5" as an order and its value.
std::pair<std::string, std::string> split(const std::string& text) {
    const std::size_t end = std::min(text.find(' '), text.size());
    return {text.substr(0, end), text.substr(std::min(end + 1, text.size()))};
}

SimulatorBehaviour after(const std::vector<std::string>& orders) {
    SimulatorBehaviour behaviour;
    for (const std::string& text : orders) {
        const auto [order, value] = split(text);
        EXPECT_TRUE(carryOut(order, value, behaviour)) << text;
    }
    return behaviour;
}

const std::vector<std::string> kEveryChange = {
    "refuse",           "hang",
    "die-in-job",       "delay 1.5",
    "job-seconds 0.25", "report-size 18446744073709551615"};

TEST(SimulatorOrder, acceptEndsFaultsOnly) {
    SimulatorBehaviour behaviour = after(kEveryChange);
    EXPECT_TRUE(carryOut("accept", "", behaviour));
    EXPECT_EQ(describe(behaviour),
              "accepts connections, acts at once, jobs take 0.25 s, reports "
              "18446744073709551615 bytes as backup size");
}

TEST(SimulatorOrder, realSizeEndsReportedSize) {
    EXPECT_EQ(after({"report-size 3", "real-size"}).reportedSize, std::nullopt);
}

TEST(SimulatorOrder, changesNothingWhenWrong) {
    for (const std::string text :
         {"", "nonsense", "refuse 1", "status x", "delay", "delay -1", "delay 1s", "delay nan",
          "delay inf", "delay 86401", "delay  1", "job-seconds x", "report-size", "report-size -1",
          "report-size 1.5", "report-size 18446744073709551616"}) {
        const auto [order, value] = split(text);
        SimulatorBehaviour behaviour = after({"delay 3", "report-size 4"});
        const std::string before = describe(behaviour);
        EXPECT_FALSE(carryOut(order, value, behaviour)) << text;
        EXPECT_EQ(describe(behaviour), before);
    }
}

TEST(SimulatorOrder, changesWhatIsDescribed) {
    EXPECT_EQ(describe(after({"job-seconds 3", "status"})),
              "accepts connections, acts at once, jobs take 3 s, reports the real backup size");
    EXPECT_EQ(describe(after(kEveryChange)),
              "refuses connections, hangs, dies in a job, acts after 1.5 s, jobs take 0.25 s, "
              "reports 18446744073709551615 bytes as backup size");
}

TEST(LiveBehaviour, keepsPaceOfJob) {
    LiveBehaviour behaviour(after({"job-seconds 0.2"}));
    const auto begin = std::chrono::steady_clock::now();
    const Pace pace = behaviour.pace();
    pace(1, 2);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(100));
    pace(2, 2);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(200));
}

// What is left of a job takes its time, also after it has been held up for longer than all of it
// takes.
TEST(LiveBehaviour, doesNotHurryLateJob) {
    LiveBehaviour behaviour(after({"job-seconds 0.2"}));
    const Pace pace = behaviour.pace();
    std::this_thread::sleep_for(milliseconds(250));
    const auto begin = std::chrono::steady_clock::now();
    pace(1, 10);
    pace(10, 10);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(180));
}

}  // namespace
