// The build step that takes the made-up names of nameless arguments out of generated code.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/files/files.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/child_process.h"

namespace test_support {
namespace {

constexpr const char* kGenerated =
    "{ -1, (gchar *) \"unnamed_arg0\", (gchar *) \"av\", NULL },\n"
    "{ -1, (gchar *) \"usb_count\", (gchar *) \"u\", NULL },\n"
    "{ -1, (gchar *) \"unnamed_arg12\", (gchar *) \"b\", NULL };\n";
constexpr const char* kTwoNameless =
    "<arg type=\"av\"/>\n<arg name=\"usb_count\" type=\"u\"/>\n<arg type=\"b\"/>\n";

class StripUnnamedArguments : public testing::Test {
protected:
    CommandResult strip(const std::string& description) const {
        writeFile(folder_.path("interface.xml"), description);
        writeFile(generated_, kGenerated);
        return runCommand({"cmake", "-DFILE=" + generated_,
                           "-DDESCRIPTION=" + folder_.path("interface.xml"), "-P",
                           sourcePath("cmake/StripUnnamedArguments.cmake")});
    }

    const TemporaryDirectory folder_;
    const std::string generated_ = folder_.path("generated.c");
};

TEST_F(StripUnnamedArguments, replacesMadeUpNamesByNull) {
    EXPECT_EQ(strip(kTwoNameless).end, exited(0));
    EXPECT_EQ(readFile(generated_),
              "{ -1, NULL, (gchar *) \"av\", NULL },\n"
              "{ -1, (gchar *) \"usb_count\", (gchar *) \"u\", NULL },\n"
              "{ -1, NULL, (gchar *) \"b\", NULL };\n");
}

TEST_F(StripUnnamedArguments, removesFileWithAnotherNumberOfNames) {
    const CommandResult result = strip(std::string(kTwoNameless) + "<arg type=\"s\"/>\n");
    EXPECT_EQ(result.end, exited(1));
    EXPECT_THAT(result.error, testing::HasSubstr("expected 3 unnamed arguments, found 2"));
    EXPECT_FALSE(exists(generated_));
}

}  // namespace
}  // namespace test_support
