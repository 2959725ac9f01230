// The memory that long listings take.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/bus/system_bus.h"
#include "tests/support/device/stick.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/service_process.h"
#include "tests/support/process/waiting.h"

// Sanitizers have a heap of their own.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

namespace test_support {
namespace {

constexpr int kFiles = 20'000;
constexpr int kBytesARecord = 88;  // in the reply: four elements, of which two are strings
constexpr int kReplyOfThem = kFiles * kBytesARecord / 1024;  // kB

class Memory : public testing::Test {
protected:
    void SetUp() override {
        if (const std::string reason = whyMemoryIsNotItsOwn(); !reason.empty()) {
            GTEST_SKIP() << reason;
        }
        // Longer than what a std::string holds in itself.
        for (int i = 0; i < kFiles; ++i) {
            stick_.addFile("many/photograph-of-the-holidays-" + std::to_string(i) + ".jpg", "");
        }
        stick_.addFile("one/a", "");
        ASSERT_TRUE(service_.waitUntilAnswers());
        ASSERT_EQ(list("one"), 4U);  // what only the first listing takes is none of a long one's
    }

    // Returns the number of elements.
    std::size_t list(const std::string& directory) const {
        const Reply index = bus_.transfer("GetDirectoryIndex",
                                          g_variant_new("(ss)", "USB_X60.1", directory.c_str()));
        if (index.type() != "(av)") {
            ADD_FAILURE() << index.printed();
            return 0;
        }
        const VariantPtr elements(g_variant_get_child_value(index.value.get(), 0));
        return g_variant_n_children(elements.get());
    }

    // Kilobytes that a field of the process's status tells.
    int kilobytes(const std::string& field) const {
        return std::stoi(statusField(service_.processId().value(), field).value());
    }

    Stick stick_{1, {"64m", "/dev/sda1"}};
    // As unit and boot script start it.
    ServiceProcess service_{{{}, {"G_SLICE=always-malloc"}}};
    SystemBus bus_;
};

TEST_F(Memory, isGivenBackAfterLongLists) {
    const int before = kilobytes("RssAnon");
    ASSERT_EQ(list("many"), 4U * kFiles);
    ASSERT_EQ(list("many"), 4U * kFiles);
    ASSERT_EQ(list("one"), 4U);
    EXPECT_TRUE(eventually([&] { return kilobytes("RssAnon") - before <= kReplyOfThem / 4; },
                           "the memory given back"))
        << before << " kB before, " << kilobytes("RssAnon") << " kB after";
}

}  // namespace
}  // namespace test_support

#endif
