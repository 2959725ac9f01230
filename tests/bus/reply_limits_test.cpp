// Sticks that hold more than a reply can carry, and names that a message cannot: the client gets a
// well-formed reply, and the log says what is missing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/bus/steady_service.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/device/stick.h"
#include "tests/support/process/service_messages.h"

namespace test_support {
namespace {

constexpr std::size_t kMebibyte = 1024 * 1024;

class ReplyLimit : protected WithLog, public SteadyServiceWithDouble {
protected:
    // The first value of the reply: the array of an index, the box of a list.
    VariantPtr list(const std::string& method, const std::string& directory) const {
        const Reply reply =
            bus_.transfer(method, g_variant_new("(ss)", "USB_X60.1", directory.c_str()));
        EXPECT_EQ(reply.error, "") << reply.message;
        return VariantPtr(reply.value ? g_variant_get_child_value(reply.value.get(), 0) : nullptr);
    }

    Stick stick_{1, {"64m"}};
};

TEST_F(ReplyLimit, cutsFileTupleAfter63Records) {
    for (int number = 0; number < 63; ++number) {
        stick_.addFile(std::to_string(number), "");
    }
    list("GetRestoreFilesList", "");
    stick_.addFile("another", "");
    const VariantPtr box = list("GetRestoreFilesList", "");
    g_autoptr(GVariant) tuple = g_variant_get_variant(box.get());
    EXPECT_EQ(g_variant_n_children(tuple), 63U * 4U);
    EXPECT_EQ(g_variant_n_children(list("GetDirectoryIndex", "").get()), 64U * 4U);
    const std::string omission = "GetRestoreFilesList: 1 of 64 entries left out of the reply";
    ASSERT_TRUE(log_.waitFor("left out"));
    EXPECT_EQ(log_.messages().back(), "[NFO] " + omission);
    EXPECT_TRUE(service_.waitForOutput("[DEB] Init Main loop\n[NFO] " + omission + "\n"));
}

// Long locations make a reply large with few files: they are part of every record.
TEST_F(ReplyLimit, endsIndexAfterWholeRecord) {
    std::string directory;
    for (int level = 0; level < 15; ++level) {
        directory += std::string(249, 'd') + "/";
    }
    directory += "last";
    constexpr std::size_t kListed = 9'000;
    for (std::size_t number = 0; number < kListed; ++number) {
        stick_.addFile(directory + "/" + std::to_string(number), "");
    }
    const VariantPtr index = list("GetDirectoryIndex", directory);
    ASSERT_NE(index, nullptr);
    const std::size_t elements = g_variant_n_children(index.get());
    const std::size_t records = elements / 4;
    EXPECT_EQ(elements % 4, 0U);
    EXPECT_LT(records * directory.size(), 32 * kMebibyte);
    EXPECT_GT(records * directory.size(), 31 * kMebibyte);
    const VariantPtr last(g_variant_get_child_value(index.get(), elements - 1));
    EXPECT_EQ(asText(last.get()), "<'" + directory + "'>");
    EXPECT_TRUE(log_.waitFor("GetDirectoryIndex: " + std::to_string(kListed - records) + " of " +
                             std::to_string(kListed) + " entries left out of the reply"));
}

TEST_F(ReplyLimit, mendsDeviceNameThatIsNotUtf8) {
    device_.order("Vesk.getValue", "value", "\xFF-DEV\xC3ICE\xE2\x82");
    const std::string r = "\xEF\xBF\xBD";
    EXPECT_THAT(ask("GetBackupFileName", "(uint32 1,)"),
                testing::StartsWith("('" + r + "-DEV" + r + "ICE" + r + r + "-"));
}

}  // namespace
}  // namespace test_support
