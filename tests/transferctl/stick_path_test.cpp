// Places on sticks as a user writes them.
#include "transferctl/stick_path.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "transfer/contract.h"
#include "transferctl/failure.h"

namespace transferctl {
namespace {

template <typename Function, typename Argument>
void expectWrongUsage(const Function& function, const Argument& argument) {
    try {
        function(argument);
        ADD_FAILURE() << testing::PrintToString(argument) << " was taken";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.status(), ExitStatus::kUsage);
    }
}

TEST(StickPath, namesTheStickAndTidiesThePath) {
    for (const auto& [text, place] : std::vector<std::pair<std::string, std::string>>{
             {"1:a.psb", "USB_X60.1:a.psb"},
             {"USB_X60.4:dir/file", "USB_X60.4:dir/file"},
             {"2", "USB_X60.2:"},
             {"2:", "USB_X60.2:"},
             {"3:co:lon", "USB_X60.3:co:lon"},
             {"1:/a//b/./c/", "USB_X60.1:a/b/c"},
             {"1://", "USB_X60.1:"},
             {"1:..a/...b/.c", "USB_X60.1:..a/...b/.c"},
             {"1:-rf %n \x1b", "USB_X60.1:-rf %n \x1b"}}) {
        EXPECT_EQ(parseStickPath(text).text(), place);
    }
}

TEST(StickPath, takesEveryStickOfTheService) {
    const std::string last = std::to_string(kLastStick);
    EXPECT_EQ(parseStickPath(last).stick, kStickPrefix + last);
    expectWrongUsage(parseStickPath, std::to_string(kLastStick + 1));
}

TEST(StickPath, rejectsWhatIsNoPlaceOnAStick) {
    for (const std::string text :
         {"", ":", ":a", "0:a", "11:a", "..:a", "USB_X60.:a", "a/b", "USB_X60.1x:a", "usb_x60.1:a",
          "USB_X60.1/..:a", "1:..", "1:a/../b", "1:a/..", "1:/../", "1:a\xff"}) {
        expectWrongUsage(parseStickPath, text);
    }
}

TEST(StickPath, isHiddenWhenItsNameBeginsWithADot) {
    EXPECT_TRUE(parseStickPath("1:a/.b").isHidden());
    EXPECT_FALSE(parseStickPath("1:.a/b").isHidden());
    EXPECT_FALSE(parseStickPath("1:").isHidden());
}

TEST(NewName, isOnePartThatTheServiceLists) {
    EXPECT_NO_THROW(checkNewName("a b.psb"));
    EXPECT_NO_THROW(checkNewName("-a"));
    for (const std::string name : {"", "a/b", ".a", "..", "a\xff"}) {
        expectWrongUsage(checkNewName, name);
    }
}

TEST(NewDirectory, isAsLongAsTheServiceTakes) {
    StickPath place{"USB_X60.1", std::string(255 - sizeof "/media/usb/USB_X60.1/" + 1, 'a')};
    EXPECT_NO_THROW(checkNewDirectory(place));
    place.path += "a";
    expectWrongUsage(checkNewDirectory, place);
}

}  // namespace
}  // namespace transferctl
