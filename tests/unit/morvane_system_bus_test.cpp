// The bus framework: what it does with registered objects once the name is owned, and without any.
#include "service/morvane_system_bus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "com.morvane.dbus/com.morvane.dbus.h"
#include "service/daemonize.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/process/child_process.h"
#include "tests/support/process/service_messages.h"
#include "tests/support/process/start_semaphores.h"
#include "tests/support/process/syslog_socket.h"
#include "tests/support/process/waiting.h"

using com::morvane::dbus::MorvaneSystemBus;

namespace test_support {
namespace {

// Notes what the framework asks of it, and at which path it is exported at that moment. Quit is
// answered with an error that tells the objects apart.
class NotingInterface : public GDBusInterfaceBase {
public:
    explicit NotingInterface(const std::string& name)
        : GDBusInterfaceBase(G_DBUS_INTERFACE_SKELETON(morvane_dbus_skeleton_new())), name_(name) {}

    void connectHandlers() override {
        g_signal_connect(getSkeleton(), "handle-quit", G_CALLBACK(answer), this);
        note(name_ + " connects, " + whereExported());
    }

    void start(int argc, char** argv) override {
        note(name_ + " starts with " + std::to_string(argc) + " " + argv[0] + ", " +
             whereExported() + ", set " + (StartSemaphores::exists() ? "there" : "gone"));
    }

private:
    static gboolean answer(MorvaneDbus* /*skeleton*/, GDBusMethodInvocation* invocation,
                           gpointer self) {
        const std::string error = "a.test." + static_cast<const NotingInterface*>(self)->name_;
        g_dbus_method_invocation_return_dbus_error(invocation, error.c_str(), "");
        return TRUE;
    }

    // GLib keeps the path of a failed export, but no connection.
    std::string whereExported() const {
        GDBusInterfaceSkeleton* skeleton = getSkeleton();
        const bool served = g_dbus_interface_skeleton_get_connection(skeleton) != nullptr;
        return served ? std::string("at ") + g_dbus_interface_skeleton_get_object_path(skeleton)
                      : "not exported";
    }

    std::string name_;
};

// What a fresh process does: two objects, the second to be started first, and the main loop.
[[noreturn]] void serve(const char* firstPath, const char* secondPath) {
    NotingInterface first("First");
    NotingInterface second("Second");
    GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
    char word[] = "word";
    char* arguments[] = {word, nullptr};
    EXPECT_TRUE(MorvaneSystemBus().registerInterface(firstPath, &first));
    EXPECT_TRUE(MorvaneSystemBus().registerInterface(secondPath, &second));
    MorvaneSystemBus().addStartArguments(&second, 1, arguments);
    MorvaneSystemBus().addStartArguments(&first, 7, arguments);
    MorvaneSystemBus().ownName(kServiceName, loop);
    g_main_loop_run(loop);
    std::abort();
}

// The answer of the object at `path`, which is an error of its name.
std::string whoAnswersAt(const std::string& path) {
    return SystemBus().call(path, kControlInterface, "Quit").error;
}

TEST(BusFramework, exits3WithoutRegisteredObjects) {
    SyslogSocket log;
    const CommandResult result =
        runForked([] { MorvaneSystemBus().ownName(kServiceName, nullptr); });
    EXPECT_EQ(result.end, exited(3));
    EXPECT_EQ(result.output, "[ERR] No Interfaces Registered\n");
    EXPECT_EQ(result.error, "");
    ASSERT_TRUE(log.waitFor("No Interfaces"));
    EXPECT_THAT(log.messages(), testing::ElementsAre("[ERR] No Interfaces Registered"));
}

TEST(BusFramework, connectsAndExportsBeforeItStarts) {
    if (isFreshProcess()) {
        serve("/b", "/a");
    }
    const ChildProcess service = freshProcess();
    ASSERT_TRUE(service.waitForReport("First starts with 7 word, at /b, set gone"));
    EXPECT_EQ(service.report(),
              "First connects, not exported\n"
              "Second connects, not exported\n"
              "Second starts with 1 word, at /a, set gone\n"
              "First starts with 7 word, at /b, set gone\n");
    EXPECT_EQ(whoAnswersAt("/b"), "a.test.First");
    EXPECT_EQ(whoAnswersAt("/a"), "a.test.Second");
}

TEST(BusFramework, ignoresAFailedExport) {
    if (isFreshProcess()) {
        serve("/same", "/same");
    }
    const ChildProcess service = freshProcess();
    ASSERT_TRUE(service.waitForReport("First starts with 7 word, at /same, set gone"));
    EXPECT_EQ(service.report(),
              "First connects, not exported\n"
              "Second connects, not exported\n"
              "Second starts with 1 word, not exported, set gone\n"
              "First starts with 7 word, at /same, set gone\n");
    EXPECT_EQ(whoAnswersAt("/same"), "a.test.First");
    EXPECT_EQ(service.standardError(), "");
}

TEST(BusFramework, signalsTheLauncherBetweenExportAndStart) {
    if (isFreshProcess()) {
        MorvaneSystemBus().setSemaphoreId(createSemaphore(2));
        serve("/b", "/a");
    }
    const StartSemaphores set;
    set.make({0, 0});
    const ChildProcess service = freshProcess();
    ASSERT_TRUE(eventually([&] { return set.waiting(1) == 1; }, "the acknowledgement is awaited"));
    EXPECT_EQ(set.value(0), 1);
    ASSERT_TRUE(service.waitForReport("Second connects, not exported"));  // the note travels
    EXPECT_EQ(service.report(), "First connects, not exported\nSecond connects, not exported\n");
    set.give(1);
    ASSERT_TRUE(service.waitForReport("First starts with 7 word, at /b, set there"));
    ASSERT_TRUE(eventually([] { return !StartSemaphores::exists(); }, "the set is removed"));
    EXPECT_EQ(whoAnswersAt("/b"), "a.test.First");
}

}  // namespace
}  // namespace test_support
