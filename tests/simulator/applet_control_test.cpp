// The simulated applet control, as its clients see it on the bus.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "com.morvane.scctrl/com.morvane.scctrl.h"
#include "simulator/gobject_pointer.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/files/files.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/child_process.h"
#include "tests/support/process/unique_fd.h"
#include "tests/support/process/waiting.h"
#include "transfer/contract.h"

namespace {

using test_support::ChildProcess;

// Runs it with a pipe of a name as its input, and holds a proxy that a client would have.
class SimulatedAppletControl : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(mkfifo(pipe_.c_str(), 0600), 0);
        input_.reset(open(pipe_.c_str(), O_RDWR | O_CLOEXEC));
        process_.emplace(test_support::runnableAfter(
            {"/bin/sh", "-c", "input=$1; shift; exec \"$@\" <\"$input\"", "sh", pipe_},
            test_support::buildPath("applet-control")));
        ASSERT_TRUE(process_->waitForOutput("owns com.morvane.scctrl"));
        g_autoptr(GError) error = nullptr;
        client_.reset(morvane_scctrl_proxy_new_for_bus_sync(
            G_BUS_TYPE_SYSTEM, G_DBUS_PROXY_FLAGS_NONE, kAppletControlName, kAppletControlPath,
            nullptr, &error));
        ASSERT_NE(client_, nullptr) << error->message;
    }

    void tell(const std::string& line) {
        const std::string text = line + "\n";
        ASSERT_EQ(write(input_.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    // The main context delivers what the bus announces.
    static bool waitFor(const std::function<bool()>& condition) {
        return test_support::waitUntil([&] {
            while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
            }
            return condition();
        });
    }

    std::string name() { return morvane_scctrl_get_organization_name(client_.get()); }
    std::string domain() { return morvane_scctrl_get_organization_domain(client_.get()); }

    const test_support::TemporaryDirectory folder_;
    const std::string pipe_ = folder_.path("input");
    test_support::UniqueFd input_;
    std::optional<ChildProcess> process_;
    GObjectPointer<MorvaneScctrl> client_;
};

TEST_F(SimulatedAppletControl, hasTwoReadableProperties) {
    EXPECT_EQ(name(), "Morvane");
    EXPECT_EQ(domain(), "morvane.com");
}

TEST_F(SimulatedAppletControl, announcesChangedProperties) {
    tell("organizationName=A=b \xC3\xBC");
    EXPECT_TRUE(waitFor([&] { return name() == "A=b \xC3\xBC"; })) << name();
    tell("organizationDomain=");
    EXPECT_TRUE(waitFor([&] { return domain().empty(); })) << domain();
    EXPECT_EQ(name(), "A=b \xC3\xBC");
}

TEST_F(SimulatedAppletControl, announcesApplets) {
    std::vector<int> announced;
    g_signal_connect(
        client_.get(), "applet-changed",
        G_CALLBACK(+[](MorvaneScctrl*, gint id, std::vector<int>* all) { all->push_back(id); }),
        &announced);
    tell("256");
    tell("-2147483648");
    EXPECT_TRUE(waitFor([&] { return announced.size() == 2; }));
    EXPECT_THAT(announced, testing::ElementsAre(256, -2147483648));
}

TEST_F(SimulatedAppletControl, logsLinesThatMakeNoSense) {
    for (const char* line : {"x", "", "2147483648", "1 ", "other=1"}) {
        tell(line);
        EXPECT_TRUE(process_->waitForOutput(std::string("no applet id: ") + line + "\n"));
    }
    tell("organizationName=\xFF");
    EXPECT_TRUE(process_->waitForOutput("no text for a property: organizationName=\\xff\n"));
    EXPECT_EQ(name(), "Morvane");
}

}  // namespace
