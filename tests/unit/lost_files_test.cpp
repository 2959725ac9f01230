// Files are never lost: an operation changes nothing but what it names.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/files/file_snapshot.h"
#include "tests/support/files/odd_sticks.h"
#include "tests/unit/job_fixture.h"

namespace test_support {

namespace fs = std::filesystem;

namespace {

constexpr int kOperations = 100;

class RandomOperation : public JobTest, public testing::WithParamInterface<unsigned> {
protected:
    // Returns whether it succeeded, or whether its job was started.
    bool run(const std::string& operation, const std::string& mount, const std::string& path) {
        if (operation == "DeleteFile") {
            return manager_.DeleteFile(mount, path);
        }
        if (operation == "CreateDirectory") {
            return manager_.CreateDirectory(mount, path);
        }
        if (operation == "getBackupFilesList") {
            return !manager_.getBackupFilesList(mount, path).empty();
        }
        TfMngr manager;  // one of its own, so that the job works on its own names
        const JobResult result = operation == "DoBackup"    ? manager.DoBackup(mount, 1, path)
                                 : operation == "DoRestore" ? manager.DoRestore(mount, path)
                                                            : manager.DoOSUpdate(mount, path);
        waitForWorkers();
        return result == JobResult::Started;
    }

    void orderDevice(bool hasSpace) {
        device_.clearOrders();
        device_.order("BR.backup", "write", "5");
        device_.order("BR.getBackupSize", "bytes", hasSpace ? "0" : "18446744073709551615");
    }

    OddSticks sticks_{GetParam()};
};

TEST_P(RandomOperation, changesOnlyWhatItNames) {
    static const std::vector<std::string> kAll{
        "DeleteFile", "CreateDirectory", "CreateDirectory", "DoBackup",          "DoBackup",
        "DoBackup",   "DoRestore",       "DoOSUpdate",      "getBackupFilesList"};
    for (int number = 0; number < kOperations && !HasFailure(); ++number) {
        const std::string operation = sticks_.oneOf(kAll);
        const std::string mount = sticks_.mount();
        const std::string file = sticks_.path();
        if (!staysOnSticks(targetOf(mount, file))) {
            continue;
        }
        SCOPED_TRACE(operation + " '" + mount + "' '" + file + "'");
        orderDevice(number % 3 != 0);
        std::string named = physicalPath(targetOf(mount, file));
        FileSnapshot before = snapshotOf("/media");
        const bool done = run(operation, mount, file);
        FileSnapshot after = snapshotOf("/media");
        if (done && operation == "DeleteFile") {
            EXPECT_EQ(after.count(named), 0U);
            before.erase(named);
        }
        if (done && operation == "DoBackup") {
            // Missing parents are made, so only then the place is known. It may be a link.
            named = physicalPath(targetOf(mount, file));
            for (const std::string& mine : {named, fs::weakly_canonical(named).string()}) {
                before.erase(mine);
                after.erase(mine);
            }
        }
        const bool mayMakeDirectories =
            done && operation != "DeleteFile" && operation != "getBackupFilesList";
        EXPECT_TRUE(mayMakeDirectories ? addsOnlyDirectories(before, after) : before == after)
            << testing::PrintToString(changedPaths(before, after));
    }
}

INSTANTIATE_TEST_SUITE_P(WithSeed, RandomOperation, testing::Range(0U, 3U));

}  // namespace
}  // namespace test_support
