// The transfer interface's one object and the connection of its handlers.
#include "transfer/dbus_interface.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/bus/interface_description.h"
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

TEST(TransferInterface, connectsOneHandlerToEachMethod) {
    constexpr auto kWithoutData =
        static_cast<GSignalMatchType>(G_SIGNAL_MATCH_ID | G_SIGNAL_MATCH_DATA);
    GDBusInterfaceSkeleton* const skeleton = connectedInstance().getSkeleton();
    guint count = 0;
    g_autofree guint* signals = g_signal_list_ids(TYPE_MORVANE_TRANSFER_SAC, &count);
    EXPECT_EQ(count, transferMethods().size());
    for (guint i = 0; i < count; ++i) {
        const auto matching = [&](auto* operation) {
            return operation(skeleton, kWithoutData, signals[i], 0, nullptr, nullptr, nullptr);
        };
        EXPECT_EQ(matching(g_signal_handlers_block_matched), 1U) << g_signal_name(signals[i]);
        matching(g_signal_handlers_unblock_matched);
    }
}

}  // namespace
}  // namespace test_support
