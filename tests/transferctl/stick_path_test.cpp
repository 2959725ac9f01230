// Places on sticks as a user writes them.
#include <gtest/gtest.h>

#include "transferctl/failure.h"
#include "transferctl/stick_path.h"

namespace transferctl {
namespace {

std::string parsedPath(const std::string& text) {
    return parseStickPath(text).text();
}

// The status of the failure, or -1 when there is none.
template <typename Function>
int failureOfCall(const Function& function) {
    try {
        function();
    } catch (const Failure& failure) {
        return static_cast<int>(failure.status());
    }
    return -1;
}

constexpr int kUsage = static_cast<int>(ExitStatus::kUsage);

TEST(StickPath, takesTheStickByNumberOrName) {
    EXPECT_EQ(parsedPath("1:a.psb"), "USB_X60.1:a.psb");
    EXPECT_EQ(parsedPath("USB_X60.4:dir/file"), "USB_X60.4:dir/file");
    EXPECT_EQ(parsedPath("2"), "USB_X60.2:");
    EXPECT_EQ(parsedPath("2:"), "USB_X60.2:");
    EXPECT_EQ(parsedPath("3:co:lon"), "USB_X60.3:co:lon");
}

TEST(StickPath, tidiesThePath) {
    EXPECT_EQ(parsedPath("1:/a//b/./c/"), "USB_X60.1:a/b/c");
    EXPECT_EQ(parsedPath("1://"), "USB_X60.1:");
    EXPECT_EQ(parsedPath("1:..a/...b/.c"), "USB_X60.1:..a/...b/.c");
    EXPECT_EQ(parsedPath("1:-rf %n \x1b"), "USB_X60.1:-rf %n \x1b");
}

TEST(StickPath, refusesEveryOtherStick) {
    for (const char* const text :
         {"", ":", ":a", "0:a", "5:a", "11:a", "..:a", "USB_X60.:a", "a/b", "USB_X60.5:a",
          "USB_X60.1x:a", "usb_x60.1:a", "USB_X60.1/..:a"}) {
        EXPECT_EQ(failureOfCall([&] { parseStickPath(text); }), kUsage) << text;
    }
}

TEST(StickPath, refusesToLeaveTheStickAndWhatTheBusCannotCarry) {
    for (const char* const text : {"1:..", "1:a/../b", "1:a/..", "1:/../", "1:a\xff"}) {
        EXPECT_EQ(failureOfCall([&] { parseStickPath(text); }), kUsage) << text;
    }
}

TEST(StickPath, knowsItsParts) {
    const StickPath place = parseStickPath("1:a/b/c");
    EXPECT_EQ(place.name(), "c");
    EXPECT_EQ(place.parent().text(), "USB_X60.1:a/b");
    EXPECT_EQ(place.parent().parent().parent().text(), "USB_X60.1:");
    EXPECT_EQ(place.child("d").text(), "USB_X60.1:a/b/c/d");
    EXPECT_EQ(parseStickPath("1:").child("d").text(), "USB_X60.1:d");
    EXPECT_EQ(parseStickPath("1:").parent().text(), "USB_X60.1:");
    EXPECT_TRUE(parseStickPath("1:a/.b").isHidden());
    EXPECT_FALSE(parseStickPath("1:.a/b").isHidden());
    EXPECT_FALSE(parseStickPath("1:").isHidden());
}

TEST(NewName, isOnePartThatTheServiceWillList) {
    EXPECT_EQ(failureOfCall([] { checkNewName("a b.psb"); }), -1);
    EXPECT_EQ(failureOfCall([] { checkNewName("-a"); }), -1);
    for (const char* const name : {"", "a/b", ".a", "..", "a\xff"}) {
        EXPECT_EQ(failureOfCall([&] { checkNewName(name); }), kUsage) << name;
    }
}

TEST(NewDirectory, isNotLongerThanTheServiceTakes) {
    const std::string mount = "/media/usb/USB_X60.1/";
    const std::string longest(255 - mount.size(), 'a');
    EXPECT_EQ(failureOfCall([&] { checkNewDirectory({"USB_X60.1", longest}); }), -1);
    EXPECT_EQ(failureOfCall([&] { checkNewDirectory({"USB_X60.1", longest + "a"}); }), kUsage);
}

}  // namespace
}  // namespace transferctl
