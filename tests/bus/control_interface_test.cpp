// The control interface: Quit and Init acknowledge, log, and change nothing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "tests/support/bus/system_bus.h"
#include "tests/support/process/service_messages.h"
#include "tests/support/process/service_process.h"
#include "tests/support/process/syslog_socket.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

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
        if (incoming != FALSE &&
            (type == G_DBUS_MESSAGE_TYPE_METHOD_RETURN || type == G_DBUS_MESSAGE_TYPE_ERROR)) {
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

    std::string call() const {
        return bus_.call(kControlPath, kControlInterface, GetParam()).text();
    }

    // The call has been printed and logged twice since the start, and nothing else.
    void expectLoggedTwice() {
        // The line end is part of the message, so an empty line follows on standard output.
        const LogMessage message =
            infoMessage(std::string(GetParam()) + "() Method invoked by DBus\n");
        const std::vector<LogMessage> all = joined(startUpMessages(), {message, message});
        ASSERT_TRUE(service_.waitForOutput(asPrinted(all)));
        EXPECT_EQ(service_.standardOutput(), asPrinted(all));
        ASSERT_TRUE(eventually([&] { return log_.messages().size() >= all.size(); }, "the log"));
        EXPECT_THAT(log_.messages(), testing::ElementsAreArray(all));
    }

    SyslogSocket log_;
    ServiceProcess service_;
    const SystemBus bus_;
};

TEST_P(ControlMethod, isLoggedAndChangesNothing) {
    EXPECT_EQ(call(), "()");
    EXPECT_EQ(call(), "()");
    EXPECT_EQ(bus_.transfer("GetUSBStickDetails").text(), "(@av [],)");
    expectLoggedTwice();
    EXPECT_EQ(service_.standardError(), "");
    EXPECT_TRUE(service_.processId());
}

TEST_P(ControlMethod, sendsNoUnwantedReply) {
    const AnswerCount answers(bus_.connection());
    bus_.callWithoutReply(kControlPath, kControlInterface, GetParam());
    EXPECT_EQ(call(), "()");
    EXPECT_EQ(answers.value(), 1);
    expectLoggedTwice();
}

INSTANTIATE_TEST_SUITE_P(Named, ControlMethod, testing::Values("Quit", "Init"));

}  // namespace
}  // namespace test_support
