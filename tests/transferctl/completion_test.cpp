// Completion of transferctl in a real bash, with the real service behind it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device/device_double.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"
#include "tests/support/process/service_process.h"
#include "tests/transferctl/client.h"

namespace test_support {
namespace {

// A function that stands in for transferctl on the line that is completed, and shows what it is
// given.
std::string shownArguments() {
    std::string command;
    for (const std::string& word : transferctlCommand({})) {
        command += " '" + word + "'";
    }
    return "transferctl() { if [[ $3 == __complete ]]; then" + command +
           " \"$@\"; else printf '<%s>' \"$@\"; echo; fi; }\n";
}

class Completion : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(service_.waitUntilAnswers()); }

    // What transferctl is given when these keys are typed behind its name; \t asks for completion.
    std::string completed(const std::string& keys) const {
        writeFile(folder_.path("keys"),
                  ". /usr/share/bash-completion/bash_completion\n"
                  ". " +
                      sourcePath("transferctl/completion/transferctl.bash") + "\n" +
                      shownArguments() + "transferctl " + keys + "\n");
        ChildOptions options;
        options.environment = {"INPUTRC=/dev/null", "PS1=", "TERM=dumb", "LC_ALL=C.UTF-8",
                               "TRANSFERCTL_PATIENCE=60"};
        const CommandResult result = runCommand(
            {"sh", "-c", "exec bash --norc --noprofile -i <\"$1\"", "sh", folder_.path("keys")},
            options);
        // What is typed and completed is shown on standard error.
        return result.output.empty() ? result.error : result.output;
    }

    const TemporaryDirectory folder_;
    const Stick stick_{1};
    DeviceDouble device_;
    ServiceProcess service_{{{}, device_.environment(), {}, {}, {}}};
};

TEST_F(Completion, knowsCommandsAndOptions) {
    EXPECT_EQ(completed("mon\t"), "<monitor>\n");
    EXPECT_EQ(completed("--js\tupd\t"), "<--json><update>\n");  // or updates
    EXPECT_EQ(completed("backup --ty\trec\t"), "<backup><--type><recipes>\n");
    EXPECT_EQ(completed("backup --type=us\t"), "<backup><--type=users>\n");
    EXPECT_EQ(completed("restore --fo\t"), "<restore><--force>\n");
    EXPECT_EQ(completed("ls --fo\t"), "<ls><--fo>\n");
}

TEST_F(Completion, knowsSticksAndWhatIsOnThem) {
    stick_.addFile("my dir/a $(b) 'c'.psb");
    stick_.addFile("co:lon");
    EXPECT_EQ(completed("ls US\t"), "<ls><USB_X60.1:>\n");
    EXPECT_EQ(completed("ls 1\tm\ta\t"), "<ls><1:my dir/a $(b) 'c'.psb>\n");
    EXPECT_EQ(completed("ls USB_X60.1:my\\ dir/\t"), "<ls><USB_X60.1:my dir/a $(b) 'c'.psb>\n");
    EXPECT_EQ(completed("rm \"1:my d\ta\t"), "<rm><1:my dir/a $(b) 'c'.psb>\n");
    EXPECT_EQ(completed("rm '1:my d\ta\t"), "<rm><1:my dir/a $(b) 'c'.psb>\n");
    EXPECT_EQ(completed("ls 1:c\t"), "<ls><1:co:lon>\n");
    EXPECT_EQ(completed("ls 1:co:\t"), "<ls><1:co:lon>\n");
}

TEST_F(Completion, offersWhatTheCommandTakes) {
    stick_.addFile("x1.psb");
    stick_.addFile("x2.fwf");
    stick_.addDirectory("x3");
    EXPECT_EQ(completed("restore 1:x1\t"), "<restore><1:x1.psb>\n");
    EXPECT_EQ(completed("restore 1:x2\t"), "<restore><1:x2>\n");
    EXPECT_EQ(completed("update 1:x2\t"), "<update><1:x2.fwf>\n");
    EXPECT_EQ(completed("mkdir 1:x\t"), "<mkdir><1:x3/>\n");
}

TEST_F(Completion, offersNoNameThatATerminalWouldActOn) {
    stick_.addFile("y\x1b]0;x\x07");
    stick_.addFile("y\xff");
    EXPECT_EQ(completed("ls 1:y\t"), "<ls><1:y>\n");
    stick_.addFile("y-%n");
    EXPECT_EQ(completed("ls 1:y\t"), "<ls><1:y-%n>\n");
}

}  // namespace
}  // namespace test_support
