// Files are never lost: an operation changes nothing but what it names.
#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "tests/support/device/stick.h"
#include "tests/support/files/file_snapshot.h"
#include "tests/unit/job_fixture.h"
#include "transfer/contract.h"

namespace test_support {

namespace fs = std::filesystem;

namespace {

constexpr int kOperations = 100;

// Two sticks with files, directories and links, and random names of what is on them and what is
// not.
class OddSticks {
public:
    explicit OddSticks(unsigned seed) : random_(seed) {
        for (const Stick* stick : {&first_, &second_}) {
            for (const char* file :
                 {"a", "b.psb", "set.psb/a", "u.fwf", "d/e/b.psb", "d/\xC3\xA4"}) {
                stick->addFile(file, file);
            }
            stick->addDirectory("empty");
            fs::create_directory_symlink("..", stick->path("up"));
            fs::create_symlink("missing", stick->path("lost.psb"));
            fs::create_directory_symlink("/media/usb/USB_X60.2", stick->path("d/other"));
        }
    }

    // A mount identifier and a path, as nobody should send them.
    std::string mount() {
        return oneOf({"USB_X60.1", "USB_X60.1", "USB_X60.2", "", "..", "USB_X60.1/d", "USB_X60.3"});
    }
    std::string path() {
        static const std::vector<std::string> kWords{
            "a",       "b.psb", "set.psb", "d", "e", "empty", "up",  "lost.psb", "other", "u.fwf",
            "new.psb", "..",    ".",       "",  " ", "%n%s",  "\n-", "\xC3\xA4", "c.psb"};
        static const std::vector<std::string> kFolders{"d", "empty", "set.psb", "up", "d/e", "a"};
        std::string path = random_() % 2 == 0 ? oneOf(kFolders) + "/" : "";
        path += oneOf(kWords);
        for (auto more = random_() % 3; more > 0; --more) {
            path += "/" + oneOf(kWords);
        }
        return path;
    }

    const std::string& oneOf(const std::vector<std::string>& words) {
        return words.at(random_() % words.size());
    }

private:
    std::mt19937 random_;
    const Stick first_{1};
    const Stick second_{2, {"16m", "/dev/sdb1"}};
};

// "/media/usb/<mount>/<path>".
std::string targetOf(const std::string& mount, const std::string& path) {
    return std::string(kMountBase) + "/" + mount + "/" + path;
}

// Whether nothing outside of the sticks is there.
bool staysOnSticks(const std::string& target) {
    // As far as there is something.
    const fs::path found = fs::weakly_canonical(target);
    return found.string().compare(0, std::string(kMountBase).size(), kMountBase) == 0;
}

// The same place with the links before the last component followed; "" when a parent is missing.
std::string physicalPath(std::string target) {
    while (target.size() > 1 && target.back() == '/') {
        target.pop_back();
    }
    std::error_code missing;
    const fs::path parent = fs::canonical(fs::path(target).parent_path(), missing);
    return missing ? "" : parent / fs::path(target).filename();
}

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
