// The service's flat lists, right and wrong ones.
#include <gtest/gtest.h>

#include "tests/support/bus/system_bus.h"
#include "transferctl/failure.h"
#include "transferctl/reply_decoding.h"

namespace transferctl {
namespace {

test_support::VariantPtr parsedValue(const char* text) {
    return test_support::VariantPtr(g_variant_parse(nullptr, text, nullptr, nullptr, nullptr));
}

template <typename Decode>
void expectRefused(const char* text, const Decode& decode) {
    const test_support::VariantPtr list = parsedValue(text);
    try {
        decode(list.get());
        ADD_FAILURE() << text << " was taken";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.status(), ExitStatus::kNoService) << text;
    }
}

void decodeFilesOfStick(GVariant* list) {
    decodeFiles(list, "USB_X60.1");
}

TEST(StickReply, becomesSticks) {
    const auto list = parsedValue("[<'USB_X60.1'>, <'USB_X60.1'>, <uint64 100>, <uint64 40>]");
    const std::vector<Stick> sticks = decodeSticks(list.get());
    ASSERT_EQ(sticks.size(), 1U);
    EXPECT_EQ(sticks[0].name, "USB_X60.1");
    EXPECT_EQ(sticks[0].size, 100U);
    EXPECT_EQ(sticks[0].free, 40U);
    EXPECT_TRUE(decodeSticks(parsedValue("@av []").get()).empty());
}

TEST(FileReply, becomesFilesWithTheirPlaces) {
    const auto list = parsedValue(
        "[<uint32 0>, <'d'>, <uint64 4>, <'/'>, <uint32 1>, <'f'>, <uint64 5>, <'d/e'>]");
    const std::vector<File> files = decodeFiles(list.get(), "USB_X60.2");
    ASSERT_EQ(files.size(), 2U);
    EXPECT_TRUE(files[0].isDirectory);
    EXPECT_EQ(files[0].place.text(), "USB_X60.2:d");
    EXPECT_FALSE(files[1].isDirectory);
    EXPECT_EQ(files[1].size, 5U);
    EXPECT_EQ(files[1].place.text(), "USB_X60.2:d/e/f");
}

TEST(FileReply, thatIsNotAsPromisedIsRefused) {
    for (const char* const text :
         {"[<uint32 0>]", "[<uint32 0>, <'d'>, <uint64 4>]", "'text'", "['a', 'b', 'c', 'd']",
          "[<uint32 0>, <'d'>, <uint64 4>, <'/'>, <uint32 0>]",
          "[<int32 0>, <'d'>, <uint64 4>, <'/'>]", "[<uint32 0>, <7>, <uint64 4>, <'/'>]",
          "[<uint32 0>, <'d'>, <uint32 4>, <'/'>]", "[<uint32 0>, <'d'>, <uint64 4>, <['/']>]",
          "[<<uint32 0>>, <'d'>, <uint64 4>, <'/'>]"}) {
        expectRefused(text, decodeFilesOfStick);
    }
    EXPECT_THROW(decodeFilesOfStick(nullptr), Failure);
}

TEST(StickReply, thatIsNotAsPromisedIsRefused) {
    for (const char* const text :
         {"[<'a'>, <'a'>, <uint64 1>]", "[<1>, <'a'>, <uint64 1>, <uint64 1>]",
          "[<'a'>, <1>, <uint64 1>, <uint64 1>]", "[<'a'>, <'a'>, <'b'>, <uint64 1>]",
          "[<'a'>, <'a'>, <uint64 1>, <1>]"}) {
        expectRefused(text, decodeSticks);
    }
}

}  // namespace
}  // namespace transferctl
