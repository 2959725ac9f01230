// The build step that takes the made-up names of nameless arguments out of generated code.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/files/files.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/child_process.h"

namespace test_support {
namespace {

constexpr const char* kTwoNames =
    "{ -1, (gchar *) \"unnamed_arg0\", (gchar *) \"av\", NULL },\n"
    "{ -1, (gchar *) \"usb_count\", (gchar *) \"u\", NULL },\n"
    "{ -1, (gchar *) \"unnamed_arg12\", (gchar *) \"b\", NULL };\n";

class StripUnnamedArguments : public testing::Test {
protected:
    CommandResult strip(int expected) const {
        return runCommand({"cmake", "-DFILE=" + file_, "-DEXPECTED=" + std::to_string(expected),
                           "-P", sourcePath("cmake/StripUnnamedArguments.cmake")});
    }

    void expectRefusal(int expected) const {
        writeFile(file_, kTwoNames);
        const CommandResult result = strip(expected);
        EXPECT_EQ(result.end, exited(1));
        EXPECT_THAT(result.error, testing::HasSubstr("expected " + std::to_string(expected) +
                                                     " unnamed arguments, found 2"));
        EXPECT_FALSE(exists(file_));
    }

    TemporaryDirectory folder_;
    std::string file_ = folder_.path("generated.c");
};

TEST_F(StripUnnamedArguments, replacesEachMadeUpNameByNull) {
    writeFile(file_, kTwoNames);
    EXPECT_EQ(strip(2).end, exited(0));
    EXPECT_EQ(readFile(file_),
              "{ -1, NULL, (gchar *) \"av\", NULL },\n"
              "{ -1, (gchar *) \"usb_count\", (gchar *) \"u\", NULL },\n"
              "{ -1, NULL, (gchar *) \"b\", NULL };\n");
}

TEST_F(StripUnnamedArguments, failsAndLeavesNoFileWhenThereAreOtherNumbersOfNames) {
    for (const int expected : {0, 1, 3, 15}) {
        expectRefusal(expected);
    }
}

TEST_F(StripUnnamedArguments, touchesNothingElseInGeneratedCode) {
    const std::string description = sourcePath("com.morvane.transfer/com.morvane.transfer.sac.xml");
    ASSERT_EQ(runCommand({"gdbus-codegen", "--interface-prefix", "com.", "--c-generate-autocleanup",
                          "all", "--body", "--output", file_, description})
                  .end,
              exited(0));
    std::string expected = readFile(file_);
    const std::string name = "(gchar *) \"unnamed_arg";
    int replaced = 0;
    for (std::size_t from = 0; (from = expected.find(name, from)) != std::string::npos;) {
        expected.replace(from, expected.find('"', from + name.size()) + 1 - from, "NULL");
        ++replaced;
    }
    EXPECT_EQ(replaced, 15);
    EXPECT_EQ(strip(15).end, exited(0));
    EXPECT_EQ(readFile(file_), expected);
}

}  // namespace
}  // namespace test_support
