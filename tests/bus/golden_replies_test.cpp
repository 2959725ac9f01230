// The replies of the running service, type and value, in every shape that they have.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "tests/bus/steady_service.h"
#include "tests/support/bus/interface_description.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/golden.h"
#include "tests/support/files/paths.h"

namespace test_support {
namespace {

// Asks the service and writes its answers down as the golden files hold them.
class GoldenReplies : public SteadyServiceWithDouble {
protected:
    // `arguments` in GVariant's text form; `situation` is only part of the title.
    void ask(const std::string& method, const std::string& arguments,
             const std::string& situation = "") {
        const Reply reply = bus_.transfer(method, g_variant_new_parsed(arguments.c_str()));
        EXPECT_EQ(reply.error, "") << method << arguments;
        answers_ += (answers_.empty() ? "" : "\n") + method + arguments + situation + "\n" +
                    reply.type() + "\n" + reply.printed() + "\n";
    }

    void askForSticks(const std::string& situation) {
        ask("GetUSBStickDetails", "()", situation);
        ask("GetStickDetailsWithCount", "()", situation);
    }

    void askForFiles(const std::vector<std::string>& methods,
                     const std::vector<std::string>& directories) {
        for (const std::string& method : methods) {
            for (const std::string& directory : directories) {
                ask(method, "('USB_X60.1', '" + directory + "')");
            }
        }
    }

    std::string answers_;
};

TEST_F(GoldenReplies, matchStickLists) {
    askForSticks(" without a stick");
    const Stick third(3, {"16m", "/dev/sda1"});
    third.addFile("a.psb", std::string(1024 * 1024, 'x'));
    askForSticks(" with one stick");
    const Stick first(1, {"8m", "/dev/sdb1"});
    askForSticks(" with two sticks");
    const Stick second(2, {"4m", "/dev/sdc1"});
    const Stick fourth(4, {"2m", "/dev/sdd1"});
    askForSticks(" with four sticks");
    EXPECT_EQ(answers_, goldenText("stick_replies.txt"));
}

TEST_F(GoldenReplies, matchFileLists) {
    const Stick stick(1);
    stick.addDirectory("level/none");
    stick.addFile("level/one/a.psb");
    stick.addDirectory("level/two/photos");
    stick.addSparseFile("level/two/notes.txt", 5'000'000'000);
    stick.addFile("tree/one/a.psb.fwf");
    stick.addFile("tree/two/set.psb.fwf/a", "12345");
    stick.addFile("tree/many/x.psb.fwf/y/z/a", "");
    const std::vector<std::string> levels = {"level/none", "level/one", "level/two"};
    const std::vector<std::string> trees = {"level/none", "level/one", "tree/one", "tree/two",
                                            "tree/many"};

    askForFiles({"GetDirectoryIndex"}, levels);
    askForFiles({"GetDirectoryIndexForUpdate", "GetDirectoryIndexForBackup"}, trees);
    askForFiles({"GetRestoreFilesList"}, levels);
    askForFiles({"GetUpdateFilesList", "GetBackupFilesList"}, trees);
    EXPECT_EQ(answers_, goldenText("file_replies.txt"));
}

TEST_F(GoldenReplies, matchListsOfMissingFolders) {
    const Stick stick(1);
    stick.addFile("a.psb.fwf");
    for (const char* const method :
         {"GetDirectoryIndex", "GetDirectoryIndexForUpdate", "GetDirectoryIndexForBackup",
          "GetRestoreFilesList", "GetUpdateFilesList", "GetBackupFilesList"}) {
        ask(method, "('USB_X60.9', '')");
        ask(method, "('USB_X60.1', 'nowhere')");
        ask(method, "('USB_X60.1', 'a.psb.fwf')");
    }
    EXPECT_EQ(answers_, goldenText("missing_replies.txt"));
}

TEST_F(GoldenReplies, matchFileOperations) {
    const Stick stick(1);
    stick.addFile("a.txt");
    stick.addFile("full/b.txt");
    ask("DeleteFile", "('USB_X60.1', 'a.txt')");
    ask("DeleteFile", "('USB_X60.1', 'a.txt')", " once more");
    ask("DeleteFile", "('USB_X60.1', 'full')");
    ask("CreateDirectory", "('USB_X60.1', 'new')");
    ask("CreateDirectory", "('USB_X60.1', 'new')", " once more");
    ask("CreateDirectory", "('USB_X60.9', 'new')");
    ask("ValidateBackupSize", "(uint32 1, 'USB_X60.1')");
    ask("ValidateBackupSize", "(uint32 99, 'nowhere')");
    EXPECT_EQ(answers_, goldenText("operation_replies.txt"));
}

TEST_F(GoldenReplies, matchBackupFileName) {
    ask("GetBackupFileName", "(uint32 1,)");
    device_.order("Vesk.getValue", "value", "");
    ask("GetBackupFileName", "(uint32 1,)", " without a device name");
    const std::regex time("DEVICE-[0-9]+\\.[0-9]+-[0-9]+-[0-9]+\\.psb");
    EXPECT_EQ(std::regex_replace(answers_, time, "DEVICE-TIME.psb"),
              goldenText("name_replies.txt"));
}

TEST_F(GoldenReplies, matchJobs) {
    const Stick stick(1);
    stick.addFile("a.fwf");
    ask("DoOSUpdate", "('USB_X60.1', '')");
    ask("DoOSUpdate", "('USB_X60.9', 'a.fwf')");
    ask("DoOSUpdate", "('USB_X60.1', 'missing.fwf')");
    ask("DoOSUpdate", "('USB_X60.1', 'a.fwf')");
    ask("DoBackup", "('USB_X60.1', uint32 1, 'a.txt')");
    ask("DoBackup", "('USB_X60.9', uint32 1, 'a.psb')");
    device_.orderStatus("BR.connect", 5);
    ask("DoBackup", "('USB_X60.1', uint32 1, 'a.psb')", " without a device manager");
    device_.clearOrders();
    ask("DoBackup", "('USB_X60.1', uint32 1, 'a.psb')");
    ask("DoRestore", "('USB_X60.1', 'a.txt')");
    ask("DoRestore", "('USB_X60.9', 'a.psb')");
    ask("DoRestore", "('USB_X60.1', 'a.psb')");
    EXPECT_EQ(answers_, goldenText("job_replies.txt"));
}

// A title of a golden reply begins with the method's name.
TEST(TransferMethods, haveGoldenReplies) {
    std::set<std::string> golden;
    for (const auto& file : std::filesystem::directory_iterator(sourcePath("tests/golden"))) {
        for (const std::string& line : readLines(file.path())) {
            golden.insert(line.substr(0, line.find('(')));
        }
    }
    for (const Method& method : transferMethods()) {
        EXPECT_THAT(golden, testing::Contains(method.name));
    }
}

}  // namespace
}  // namespace test_support
