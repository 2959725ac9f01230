// The transfer interface's one object and the connection of its handlers.
#include "transfer/dbus_interface.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/bus/incoming_call.h"
#include "tests/support/device/device_double.h"
#include "tests/support/device/transfer_script.h"

namespace test_support {
namespace {

using testing::ElementsAre;

// The single object with its handlers connected, which can be done only once in a process.
DBusInterface& connectedInstance() {
    static const bool kConnected = [] {
        DBusInterface::getInstance()->connectHandlers();
        return true;
    }();
    static_cast<void>(kConnected);
    return *DBusInterface::getInstance();
}

// The transfer script's runs from now on.
class NewRuns {
public:
    std::vector<std::string> operator()() const {
        const std::vector<std::string> runs = transferScriptRuns();
        return {runs.begin() + static_cast<std::ptrdiff_t>(before_), runs.end()};
    }

private:
    std::size_t before_ = transferScriptRuns().size();
};

TEST(TransferInterface, isOneObject) {
    DBusInterface* const first = DBusInterface::getInstance();
    const NewRuns newRuns;
    EXPECT_EQ(DBusInterface::getInstance(), first);
    EXPECT_THAT(newRuns(), ElementsAre());
}

struct Method {
    const char* name;
    const char* signal;
    const char* arguments;  // in GVariant's text form
    const char* replyType;
};

// In the order of connection.
constexpr Method kMethods[] = {
    {"GetUSBStickDetails", "handle-get-usbstick-details", "()", "(av)"},
    {"GetStickDetailsWithCount", "handle-get-stick-details-with-count", "()", "(vu)"},
    {"ValidateBackupSize", "handle-validate-backup-size", "(uint32 1, 'USB_X60.1')", "(b)"},
    {"GetBackupFileName", "handle-get-backup-file-name", "(uint32 1,)", "(s)"},
    {"GetRestoreFilesList", "handle-get-restore-files-list", "('USB_X60.1', '')", "(vi)"},
    {"GetUpdateFilesList", "handle-get-update-files-list", "('USB_X60.1', '')", "(vi)"},
    {"GetBackupFilesList", "handle-get-backup-files-list", "('USB_X60.1', '')", "(vi)"},
    {"DeleteFile", "handle-delete-file", "('USB_X60.1', 'a')", "(b)"},
    {"CreateDirectory", "handle-create-directory", "('USB_X60.1', 'a')", "(b)"},
    {"DoOSUpdate", "handle-do-osupdate", "('USB_X60.1', 'a')", "(i)"},
    {"DoBackup", "handle-do-backup", "('USB_X60.1', uint32 1, 'a')", "(i)"},
    {"DoRestore", "handle-do-restore", "('USB_X60.1', 'a')", "(i)"},
    {"GetDirectoryIndex", "handle-get-directory-index", "('USB_X60.1', '')", "(av)"},
    {"GetDirectoryIndexForUpdate", "handle-get-directory-index-for-update", "('USB_X60.1', '')",
     "(av)"},
    {"GetDirectoryIndexForBackup", "handle-get-directory-index-for-backup", "('USB_X60.1', '')",
     "(av)"},
};

guint signalId(const Method& method) {
    return g_signal_lookup(method.signal, TYPE_MORVANE_TRANSFER_SAC);
}

TEST(TransferInterface, connectsEachHandlerOnceInOrder) {
    constexpr auto kWithoutData =
        static_cast<GSignalMatchType>(G_SIGNAL_MATCH_ID | G_SIGNAL_MATCH_DATA);
    GDBusInterfaceSkeleton* const skeleton = connectedInstance().getSkeleton();
    gulong last = 0;  // handlers are numbered in the order of connection
    for (const Method& method : kMethods) {
        const auto matching = [&](auto* operation) {
            return operation(skeleton, kWithoutData, signalId(method), 0, nullptr, nullptr,
                             nullptr);
        };
        const gulong handler = matching(g_signal_handler_find);
        EXPECT_GT(handler, last) << method.name;
        last = handler;
        EXPECT_EQ(matching(g_signal_handlers_block_matched), 1U) << method.name;
        matching(g_signal_handlers_unblock_matched);
    }
}

// Emits the skeleton's signal for the call, as generated code does. Returns what the handler did.
bool emit(GDBusInterfaceSkeleton* skeleton, const Method& method, GVariant* arguments,
          GDBusMethodInvocation* invocation) {
    std::vector<GValue> values(2 + g_variant_n_children(arguments), GValue G_VALUE_INIT);
    g_value_init(&values[0], TYPE_MORVANE_TRANSFER_SAC);
    g_value_set_object(&values[0], skeleton);
    g_value_init(&values[1], G_TYPE_DBUS_METHOD_INVOCATION);
    g_value_set_object(&values[1], invocation);
    for (std::size_t i = 2; i < values.size(); ++i) {
        const VariantPtr argument(g_variant_get_child_value(arguments, i - 2));
        g_dbus_gvariant_to_gvalue(argument.get(), &values[i]);
    }
    GValue handled = G_VALUE_INIT;
    g_value_init(&handled, G_TYPE_BOOLEAN);
    g_signal_emitv(values.data(), signalId(method), 0, &handled);
    for (GValue& value : values) {
        g_value_unset(&value);
    }
    return g_value_get_boolean(&handled) != FALSE;
}

TEST(TransferInterface, answersEveryCallWithItsOutSignature) {
    const DeviceDouble device;
    GDBusInterfaceSkeleton* const skeleton = connectedInstance().getSkeleton();
    for (const Method& method : kMethods) {
        const VariantPtr arguments(g_variant_ref_sink(g_variant_new_parsed(method.arguments)));
        IncomingCall call(method.name, arguments.get());
        EXPECT_TRUE(emit(skeleton, method, arguments.get(), call.invocation())) << method.name;
        const Reply reply = call.waitForReply();
        EXPECT_EQ(reply.type(), method.replyType) << method.name << reply.error;
    }
}

}  // namespace
}  // namespace test_support
