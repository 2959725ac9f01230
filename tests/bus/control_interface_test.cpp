// The control interface: Quit and Init acknowledge, log, and change nothing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/bus/system_bus.h"
#include "tests/support/process/service_messages.h"
#include "tests/support/process/service_process.h"
#include "tests/support/process/syslog_socket.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

using testing::ElementsAreArray;
using testing::IsEmpty;

// Counts the answers that a connection gets from now on.
class AnswerCount {
public:
    explicit AnswerCount(GDBusConnection* connection)
        : connection_(connection),
          filter_(g_dbus_connection_add_filter(connection, look, nullptr, nullptr)) {}
    ~AnswerCount() { g_dbus_connection_remove_filter(connection_, filter_); }
    AnswerCount(const AnswerCount&) = delete;
    AnswerCount& operator=(const AnswerCount&) = delete;

    int value() const { return count - before_; }

private:
    static GDBusMessage* look(GDBusConnection* /*connection*/, GDBusMessage* message,
                              gboolean incoming, gpointer /*data*/) {
        const GDBusMessageType type = g_dbus_message_get_message_type(message);
        const bool answer =
            type == G_DBUS_MESSAGE_TYPE_METHOD_RETURN || type == G_DBUS_MESSAGE_TYPE_ERROR;
        if (incoming != FALSE && answer) {
            ++count;
        }
        return message;
    }

    // Not a member: the sanitizer does not see how GLib hands one over to the connection's thread.
    inline static std::atomic<int> count = 0;

    GDBusConnection* connection_;
    int before_ = count;
    guint filter_;
};

class ControlMethod : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override { ASSERT_TRUE(service_.waitUntilAnswers()); }

    // Checks all that the service has printed and logged since it started.
    void expectMessages(const std::vector<LogMessage>& messages) {
        const std::vector<LogMessage> all = joined(startUpMessages(), messages);
        ASSERT_TRUE(service_.waitForOutput(asPrinted(all)));
        EXPECT_EQ(service_.standardOutput(), asPrinted(all));
        ASSERT_TRUE(eventually([&] { return log_.messages().size() >= all.size(); }, "the log"));
        EXPECT_THAT(log_.messages(), ElementsAreArray(all));
    }

    // The line end is part of the message, so an empty line follows on standard output.
    const LogMessage message_ =
        infoMessage(std::string(GetParam()) + "() Method invoked by DBus\n");
    SyslogSocket log_;
    ServiceProcess service_;
    const SystemBus bus_;
};

TEST_P(ControlMethod, answersNothingLogsTheCallAndLeavesTheServiceAlone) {
    EXPECT_EQ(bus_.call(kControlPath, kControlInterface, GetParam()).text(), "()");
    EXPECT_EQ(bus_.call(kControlPath, kControlInterface, GetParam()).text(), "()");
    EXPECT_EQ(bus_.transfer("GetUSBStickDetails").text(), "(@av [],)");
    expectMessages({message_, message_});
    EXPECT_EQ(service_.standardError(), "");
    EXPECT_THAT(service_.ends(), IsEmpty());
}

TEST_P(ControlMethod, isNotAnsweredToACallerWhoWantsNoReply) {
    const AnswerCount answers(bus_.connection());
    bus_.callWithoutReply(kControlPath, kControlInterface, GetParam());
    EXPECT_EQ(bus_.call(kControlPath, kControlInterface, GetParam()).text(), "()");
    EXPECT_EQ(answers.value(), 1);
    expectMessages({message_, message_});
}

TEST_P(ControlMethod, takesNoArguments) {
    EXPECT_EQ(
        bus_.call(kControlPath, kControlInterface, GetParam(), g_variant_new("(s)", "now")).error,
        "org.freedesktop.DBus.Error.InvalidArgs");
    expectMessages({});
}

INSTANTIATE_TEST_SUITE_P(Named, ControlMethod, testing::Values("Quit", "Init"),
                         [](const auto& method) { return std::string(method.param); });

}  // namespace
}  // namespace test_support
