// The replies of the running service, type and value, in every shape that they have.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/bus/system_bus.h"
#include "tests/support/device/device_double.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/golden.h"
#include "tests/support/process/service_process.h"

namespace test_support {
namespace {

using Record = std::array<std::string, 4>;  // of a flat list, each element as text

std::vector<Record> recordsOf(GVariant* flat) {
    std::vector<Record> records(g_variant_n_children(flat) / 4);
    for (std::size_t i = 0; i < 4 * records.size(); ++i) {
        const VariantPtr element(g_variant_get_child_value(flat, i));
        records[i / 4][i % 4] = asText(element.get());
    }
    return records;
}

// Asks the service and writes its answers down as the golden files hold them.
class GoldenReplies : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(service_.waitUntilAnswers()); }

    // `arguments` in GVariant's text form; `situation` is only part of the title.
    void ask(const std::string& method, const std::string& arguments,
             const std::string& situation = "") {
        const Reply reply = bus_.transfer(method, g_variant_new_parsed(arguments.c_str()));
        EXPECT_EQ(reply.error, "") << method << arguments;
        answers_ += (answers_.empty() ? "" : "\n") + method + arguments + situation + "\n" +
                    typeAndText(reply.value.get());
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

    DeviceDouble device_;
    ServiceProcess service_{{{}, device_.environment(), {}, {}, {}}};
    SystemBus bus_;
    std::string answers_;
};

TEST_F(GoldenReplies, ofTheStickLists) {
    askForSticks(" without a stick");
    const Stick third(3, {"16m", "/dev/sda1", false});
    third.addFile("a.psb", std::string(1024 * 1024, 'x'));
    askForSticks(" with one stick");
    const Stick first(1, {"8m", "/dev/sdb1", false});
    askForSticks(" with two sticks");
    const Stick second(2, {"4m", "/dev/sdc1", false});
    const Stick fourth(4, {"2m", "/dev/sdd1", false});
    askForSticks(" with four sticks");
    EXPECT_EQ(answers_, goldenText("stick_replies.txt"));
}

TEST_F(GoldenReplies, ofTheFileLists) {
    const Stick stick(1);
    stick.addDirectory("level/none");
    stick.addFile("level/one/a.psb");
    stick.addDirectory("level/two/photos");
    stick.addSparseFile("level/two/notes.txt", 5'000'000'000);
    stick.addFile("tree/one/a.psb.fwf");
    stick.addFile("tree/two/set.psb.fwf/a", "12345");
    stick.addFile("tree/many/x.psb.fwf/y/z/a", "");
    const std::vector<std::string> levels = {"level/none", "level/one", "level/two"};
    const std::vector<std::string> trees = {"level/none", "tree/one", "tree/two", "tree/many"};

    askForFiles({"GetDirectoryIndex"}, levels);
    askForFiles({"GetDirectoryIndexForUpdate", "GetDirectoryIndexForBackup"}, trees);
    askForFiles({"GetRestoreFilesList"}, levels);
    askForFiles({"GetUpdateFilesList", "GetBackupFilesList"}, trees);
    EXPECT_EQ(answers_, goldenText("file_replies.txt"));
}

TEST_F(GoldenReplies, ofFileListsForWhatIsNotThere) {
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

// The file system's order of names is not known, so the records are compared without order.
TEST_F(GoldenReplies, ofManyFilesAreAllRunsOfFour) {
    const Stick stick(1);
    std::vector<Record> expected;
    for (int i = 0; i < 10; ++i) {
        const std::string name = "file" + std::to_string(i);
        stick.addFile("many/" + name, std::string(static_cast<std::size_t>(i), 'x'));
        expected.push_back({"uint32 1", "'" + name + "'", "uint64 " + std::to_string(i), "'many'"});
    }
    const Reply index =
        bus_.transfer("GetDirectoryIndex", g_variant_new("(ss)", "USB_X60.1", "many"));
    ASSERT_EQ(index.type(), "(av)");
    const VariantPtr boxes(g_variant_get_child_value(index.value.get(), 0));
    std::vector<Record> boxed = expected;
    for (Record& record : boxed) {
        for (std::string& element : record) {
            element = "<" + element + ">";
        }
    }
    EXPECT_THAT(recordsOf(boxes.get()), testing::UnorderedElementsAreArray(boxed));

    const Reply list =
        bus_.transfer("GetRestoreFilesList", g_variant_new("(ss)", "USB_X60.1", "many"));
    ASSERT_EQ(list.type(), "(vi)");
    g_autoptr(GVariant) tuple = nullptr;
    gint32 count = 0;
    g_variant_get(list.value.get(), "(vi)", &tuple, &count);
    EXPECT_EQ(count, 10);
    EXPECT_EQ(std::string(g_variant_get_type_string(tuple)),
              "(ustsustsustsustsustsustsustsustsustsusts)");
    EXPECT_THAT(recordsOf(tuple), testing::UnorderedElementsAreArray(expected));
}

TEST_F(GoldenReplies, ofTheFileOperations) {
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

TEST_F(GoldenReplies, ofTheBackupFileName) {
    ask("GetBackupFileName", "(uint32 1,)");
    device_.order("Vesk.getValue", "value", "");
    ask("GetBackupFileName", "(uint32 1,)", " without a device name");
    const std::regex time("DEVICE-[0-9]+\\.[0-9]+-[0-9]+-[0-9]+\\.psb");
    EXPECT_EQ(std::regex_replace(answers_, time, "DEVICE-TIME.psb"),
              goldenText("name_replies.txt"));
}

TEST_F(GoldenReplies, ofTheJobs) {
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

}  // namespace
}  // namespace test_support
