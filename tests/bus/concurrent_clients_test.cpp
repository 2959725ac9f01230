// Many clients at once, and clients that do not wait for their answer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/bus/steady_service.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/device/stick.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

// The calls that a test has in flight, over any connections. Answers are taken in by finish().
class CallsInFlight {
public:
    // `expected` is the answer's text.
    void send(const SystemBus& bus, const std::string& method, GVariant* arguments,
              const std::string& expected) {
        auto call = std::make_unique<Call>(Call{this, method, expected});
        ++pending_;
        g_dbus_connection_call(bus.connection(), kServiceName, kTransferPath, kTransferInterface,
                               method.c_str(), arguments, nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START,
                               static_cast<int>(patience().count()), nullptr, onAnswer,
                               call.release());
    }

    // Waits for every answer and returns their number.
    int finish() {
        while (pending_ > 0) {
            g_main_context_iteration(nullptr, TRUE);
        }
        return answered_;
    }

private:
    struct Call {
        CallsInFlight* owner;
        std::string method;
        std::string expected;
    };

    static void onAnswer(GObject* connection, GAsyncResult* result, gpointer data) {
        const std::unique_ptr<Call> call(static_cast<Call*>(data));
        g_autoptr(GError) error = nullptr;
        const VariantPtr value(
            g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, &error));
        --call->owner->pending_;
        ++call->owner->answered_;
        EXPECT_EQ(asText(value.get()), call->expected)
            << call->method << (error != nullptr ? error->message : "");
    }

    int pending_ = 0;
    int answered_ = 0;
};

// Sends a call for a listing of the stick and does not wait for the answer.
void askAndForget(const SystemBus& bus, const char* method) {
    const ObjectPtr<GDBusMessage> message(
        g_dbus_message_new_method_call(kServiceName, kTransferPath, kTransferInterface, method));
    g_dbus_message_set_body(message.get(), g_variant_new("(ss)", "USB_X60.1", ""));
    g_dbus_connection_send_message(bus.connection(), message.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                   nullptr, nullptr);
    g_dbus_connection_flush_sync(bus.connection(), nullptr, nullptr);
}

class ConcurrentClients : public SteadyServiceWithDouble {
protected:
    const Stick stick_{1};
};

TEST_F(ConcurrentClients, getAnswersToTheirOwnCalls) {
    constexpr int kClients = 20;
    constexpr int kRounds = 10;
    std::vector<std::unique_ptr<SystemBus>> clients;
    for (int client = 0; client < kClients; ++client) {
        stick_.addFile("c" + std::to_string(client) + "/a.psb");
        clients.push_back(std::make_unique<SystemBus>());
    }
    CallsInFlight calls;
    for (int round = 0; round < kRounds; ++round) {
        for (int client = 0; client < kClients; ++client) {
            const SystemBus& bus = *clients[static_cast<std::size_t>(client)];
            const std::string folder = "c" + std::to_string(client);
            const auto onStick = [&folder] {
                return g_variant_new("(ss)", "USB_X60.1", folder.c_str());
            };
            calls.send(bus, "GetDirectoryIndex", onStick(),
                       "([<uint32 1>, <'a.psb'>, <uint64 7>, <'" + folder + "'>],)");
            calls.send(bus, "GetBackupFilesList", onStick(),
                       "(<(1, 'a.psb', uint64 7, '" + folder + "')>, 1)");
            calls.send(bus, "ValidateBackupSize", g_variant_new("(us)", 1U, "x"), "(true,)");
            calls.send(bus, "DeleteFile", onStick(), "(false,)");
        }
    }
    EXPECT_EQ(calls.finish(), 4 * kClients * kRounds);
}

// A message bus lets one client have 128 calls in flight.
TEST_F(ConcurrentClients, areAnsweredInOrder) {
    const SystemBus bus;
    CallsInFlight calls;
    for (int i = 0; i < 25; ++i) {
        const std::string folder = "f" + std::to_string(i);
        const auto named = [&folder] { return g_variant_new("(ss)", "USB_X60.1", folder.c_str()); };
        calls.send(bus, "CreateDirectory", named(), "(true,)");
        calls.send(bus, "CreateDirectory", named(), "(false,)");
        calls.send(bus, "DeleteFile", named(), "(true,)");
        calls.send(bus, "DeleteFile", named(), "(false,)");
    }
    EXPECT_EQ(calls.finish(), 100);
}

TEST_F(ConcurrentClients, mayVanishWithCallsInFlight) {
    const SystemBus witness;
    CallsInFlight calls;
    for (int client = 0; client < 20; ++client) {
        const SystemBus vanishing;
        for (int i = 0; i < 20; ++i) {
            askAndForget(vanishing, "GetDirectoryIndex");
        }
        calls.send(witness, "DeleteFile", g_variant_new("(ss)", "USB_X60.1", "none"), "(false,)");
    }
    EXPECT_EQ(calls.finish(), 20);
}

TEST_F(ConcurrentClients, mayVanishDuringTheirCall) {
    stick_.addFile("a.psb");
    device_.order("BR.checkBackupFile", "hang", device_.gate());
    {
        const SystemBus vanishing;
        askAndForget(vanishing, "GetBackupFilesList");
        ASSERT_TRUE(device_.waitForCall("BR1.checkBackupFile"));
    }
    device_.openGate();
    ASSERT_TRUE(device_.waitForCall("BRDestroyController(BR1)"));
}

TEST_F(ConcurrentClients, mayWantNoReply) {
    const SystemBus bus;
    bus.callWithoutReply(kTransferPath, kTransferInterface, "CreateDirectory",
                         g_variant_new("(ss)", "USB_X60.1", "new"));
    // Calls of one client are handled in order.
    EXPECT_EQ(bus.transfer("DeleteFile", g_variant_new("(ss)", "USB_X60.1", "new")).text(),
              "(true,)");
}

}  // namespace
}  // namespace test_support
