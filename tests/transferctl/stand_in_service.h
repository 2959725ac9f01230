// Owns the service's name and answers what a test tells it to, promised or not.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/bus/system_bus.h"

namespace test_support {

class StandInService {
public:
    // The replies by method, tuples in GVariant's text form, one a call; the last one repeats.
    // "error NAME" answers with that D-Bus error. Calls of other methods get no answer. Throws
    // std::runtime_error when it cannot own the name.
    using Replies = std::map<std::string, std::vector<std::string>>;
    explicit StandInService(Replies replies);
    ~StandInService();
    StandInService(const StandInService&) = delete;
    StandInService& operator=(const StandInService&) = delete;

    // Methods called by now with their arguments, in order: "DeleteFile('USB_X60.1', 'a')".
    std::vector<std::string> calls() const;

    // Waits until a method has been called.
    testing::AssertionResult waitForCall(const std::string& method) const;

    // Leaves the bus, with all calls unanswered.
    void leave();

private:
    static GDBusMessage* onMessage(GDBusConnection* connection, GDBusMessage* message,
                                   gboolean incoming, gpointer self);
    GDBusMessage* replyTo(GDBusMessage* call);
    std::optional<std::string> nextReply(GDBusMessage* call);

    Replies replies_;
    // Not a member: the thread sanitizer does not see how GLib hands one over to the other thread.
    inline static std::mutex mutex_;
    std::vector<std::string> calls_;
    SystemBus bus_;
    guint filter_ = 0;
};

}  // namespace test_support
