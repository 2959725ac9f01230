// Completion of transferctl in a real bash, with the real service behind it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>

#include "tests/support/device/device_double.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"
#include "tests/support/process/service_process.h"
#include "tests/transferctl/client.h"

namespace test_support {
namespace {

class Completion : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(service_.waitUntilAnswers()); }

    // What transferctl is given when these keys are typed behind its name; \t asks for completion.
    void expect(const std::vector<std::pair<std::string, std::string>>& cases) const {
        for (const auto& [keys, arguments] : cases) {
            EXPECT_EQ(completed(keys), arguments + "\n") << keys;
        }
    }

    const TemporaryDirectory folder_;
    const Stick stick_{1};
    DeviceDouble device_;
    ServiceProcess service_{{{}, device_.environment()}};

private:
    std::string completed(const std::string& keys) const {
        // Stands for transferctl on the line that is completed, and shows its arguments.
        std::string function = "transferctl() { if [[ $3 == __complete ]]; then";
        for (const std::string& word : transferctlCommand({})) {
            function += " '" + word + "'";
        }
        function += " \"$@\"; else printf '<%s>' \"$@\"; echo; fi; }\n";
        writeFile(folder_.path("keys"),
                  ". /usr/share/bash-completion/bash_completion\n"
                  ". " +
                      sourcePath("transferctl/completion/transferctl.bash") + "\n" + function +
                      "transferctl " + keys + "\n");
        const CommandResult result = runCommand(
            {"sh", "-c", "exec bash --norc --noprofile -i <\"$1\"", "sh", folder_.path("keys")},
            {"INPUTRC=/dev/null", "PS1=", "TERM=dumb", "LC_ALL=C.UTF-8",
             "TRANSFERCTL_PATIENCE=60"});
        // bash shows on standard error what is typed and completed.
        return result.output.empty() ? result.error : result.output;
    }
};

TEST_F(Completion, offersCommandsOptionsAndTheirValues) {
    expect({{"mon\t", "<monitor>"},
            {"--js\tupdat\t", "<--json><update>"},  // or updates
            {"--timeout 3 mon\t", "<--timeout><3><monitor>"},
            {"backup --ty\trec\t", "<backup><--type><recipes>"},
            {"backup -t us\t", "<backup><-t><users>"},
            {"backup --type=us\t", "<backup><--type=users>"},
            {"backup --timeout fu\t", "<backup><--timeout><fu>"},
            {"restore --fo\t", "<restore><--force>"},
            {"ls --fo\t", "<ls><--fo>"},
            {"status 1\t", "<status><1>"}});
}

TEST_F(Completion, offersSticksAndPlaces) {
    stick_.addFile("dir/file");
    stick_.addFile("co:lon");
    expect({{"ls US\t", "<ls><USB_X60.1:>"},
            {"ls 1\td\tf\t", "<ls><1:dir/file>"},
            {"ls USB_X60.1:dir/\t", "<ls><USB_X60.1:dir/file>"},
            {"ls 1:c\t", "<ls><1:co:lon>"},
            {"ls 1:co:\t", "<ls><1:co:lon>"}});
}

TEST_F(Completion, quotesWhatTheShellWouldActOn) {
    stick_.addFile("my dir/a $(b) 'c' \"d\" `e` ~ \\ #.psb");
    const std::string place = "1:my dir/a $(b) 'c' \"d\" `e` ~ \\ #.psb>";
    expect({{"ls 1\tm\ta\t", "<ls><" + place},
            {"ls USB_X60.1:my\\ dir/\t", "<ls><USB_X60." + place},
            {"rm \"1:my d\ta\t", "<rm><" + place},
            {"rm \"1:my dir/a\t", "<rm><" + place},
            {"rm '1:my d\ta\t", "<rm><" + place},
            {"rm '1:my dir/a\t", "<rm><" + place}});
}

TEST_F(Completion, offersWhatTheCommandTakes) {
    stick_.addFile("x1.psb");
    stick_.addFile("x2.fwf");
    stick_.addDirectory("x3");
    expect({{"restore 1:x1\t", "<restore><1:x1.psb>"},
            {"restore 1:x2\t", "<restore><1:x2>"},
            {"update 1:x2\t", "<update><1:x2.fwf>"},
            {"mkdir 1:x\t", "<mkdir><1:x3/>"}});
}

TEST_F(Completion, offersNoNameThatControlsTheTerminal) {
    stick_.addFile("y\x1b]0;x\x07");
    stick_.addFile("y\xff");
    expect({{"ls 1:y\t", "<ls><1:y>"}});
    stick_.addFile("y-%n");
    expect({{"ls 1:y\t", "<ls><1:y-%n>"}});
}

}  // namespace
}  // namespace test_support
