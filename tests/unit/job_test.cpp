// What backup, restore and update have in common, what restore and update have of their own, and
// several jobs: their fields are joined, their workers run side by side.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "tests/support/device/device_calls.h"
#include "tests/support/device/persistent_record.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"
#include "tests/support/process/process_table.h"
#include "tests/unit/job_fixture.h"

namespace test_support {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

enum class Kind { Backup, Restore, Update };

class Job : public JobTest, public testing::WithParamInterface<Kind> {
protected:
    int start(const std::string& mount, const std::string& file) {
        switch (GetParam()) {
            case Kind::Backup:
                return backup(mount, 1, file);
            case Kind::Restore:
                return restore(mount, file);
            default:
                return update(mount, file);
        }
    }
    int start(const std::string& file) { return start(stick_.name(), file); }

    bool isUpdate() const { return GetParam() == Kind::Update; }
    std::string controller() const { return isUpdate() ? "FU" : "BR"; }
    std::string marked(const std::string& name) const {
        return name + (isUpdate() ? ".fwf" : ".psb");
    }
    // An update looks for its file.
    std::string addFile(const std::string& name) const {
        stick_.addFile(marked(name), "content");
        return marked(name);
    }

    Calls sizeQueryBefore() const {
        return GetParam() == Kind::Backup ? completed(sizeQuery(1, "fullbackup")) : Calls{};
    }
    OneShot shot(const std::string& file) const {
        const std::string target = stick_.path(file);
        return GetParam() == Kind::Backup    ? backupTo(2, target, "fullbackup")
               : GetParam() == Kind::Restore ? restoreFrom(1, target)
                                             : updateFrom(1, target);
    }

    const Stick stick_{1};
};

TEST_P(Job, refusesNameWithoutMarker) {
    const std::string other = isUpdate() ? "a.psb" : "a.fwf";
    stick_.addFile(other);
    for (const std::string& name : {std::string(), std::string("a.PSB"), std::string("a.FWF"),
                                    std::string("psb"), std::string("fwf"), std::string("a.ps"),
                                    std::string("a.fw"), std::string("dir/"), other}) {
        EXPECT_EQ(start(name), 1) << name;
        EXPECT_EQ(start("USB_X60.9", name), 1) << name;
    }
    EXPECT_THAT(device_.calls(), IsEmpty());
    EXPECT_THAT(clock_.sleeps(), IsEmpty());
}

TEST_P(Job, refusesMissingStick) {
    for (const std::string& mount : {std::string("USB_X60.9"), std::string("USB_X60.1/none"),
                                     std::string("%n"), std::string(10000, 'x')}) {
        EXPECT_EQ(start(mount, marked("a")), 2) << mount;
    }
    EXPECT_THAT(device_.calls(), IsEmpty());
    EXPECT_THAT(clock_.sleeps(), IsEmpty());
}

TEST_P(Job, findsMarkerAnywhereInPath) {
    for (const std::string& file : {marked("") + "/x", marked("x") + ".old", marked("")}) {
        stick_.addFile(file);
        EXPECT_EQ(start(file), 0) << file;
        std::filesystem::remove_all(stick_.path(marked("")));
    }
}

TEST_P(Job, runsOnControllerAndThreadOfItsOwn) {
    device_.order("BR.getBackupSize", "bytes", "0");
    const std::string file = addFile("a");
    EXPECT_EQ(start(file), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(sizeQueryBefore() + completed(shot(file))));
    const std::vector<DoubleRecord> records = device_.records();
    for (std::size_t i = 0; i < records.size(); ++i) {
        EXPECT_EQ(records[i].onMainThread, i < sizeQueryBefore().size()) << records[i].entry;
        EXPECT_TRUE(records[i].onMainThread || records[i].thread == records.back().thread);
    }
    EXPECT_THAT(clock_.sleeps(), ElementsAre(1U));
}

TEST_P(Job, passesPathOnAsItIs) {
    const std::string file = addFile("../USB_X60.1/%n%s\x01\n\xFF");
    EXPECT_EQ(start(file), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(sizeQueryBefore() + completed(shot(file))));
}

TEST_P(Job, destroysControllerThatCannotConnect) {
    const std::string file = addFile("a");
    during(
        controller() + ".setWorkDirectory",
        [&] { device_.orderStatus(controller() + ".connect", 0x100000000); },
        [&] { EXPECT_EQ(start(file), 0); });
    EXPECT_THAT(device_.calls(), ElementsAreArray(sizeQueryBefore() + refused(shot(file))));
}

TEST_P(Job, disconnectsAfterFailure) {
    const std::string file = addFile("a");
    for (const char* operation : {"BR.backup", "BR.restore", "FU.update"}) {
        device_.orderStatus(operation, -1);
    }
    EXPECT_EQ(start(file), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(sizeQueryBefore() + completed(shot(file))));
}

// The library may use the log until the controller is destroyed: see the address sanitizer.
TEST_P(Job, lendsLogUntilControllerIsDestroyed) {
    const PersistentRecord record(recordWith(credential()));
    device_.order("*", "log", "0123456");
    EXPECT_EQ(start(addFile("a")), 0);
    const std::size_t controllers = GetParam() == Kind::Backup ? 2 : 1;
    EXPECT_THAT(device_.logAnswers(), testing::SizeIs(5 * controllers));
    EXPECT_THAT(device_.logAnswers(),
                testing::Each(testing::EndsWith(".readCredential() = 0 \"" + credential() + "\"")));
}

TEST_P(Job, leavesNoDescriptorOpen) {
    const std::string file = addFile("a");
    const auto before = openDescriptorsOf(getpid());
    start(file);
    for (const char* step : {".backup", ".restore", ".update", ".connect"}) {
        device_.orderStatus(controller() + step, 1);
        start(file);
    }
    EXPECT_EQ(openDescriptorsOf(getpid()), before);
}

std::string nameOf(const testing::TestParamInfo<Kind>& kind) {
    constexpr const char* kNames[] = {"Backup", "Restore", "Update"};
    return kNames[static_cast<int>(kind.param)];
}

INSTANTIATE_TEST_SUITE_P(Each, Job, testing::Values(Kind::Backup, Kind::Restore, Kind::Update),
                         nameOf);

// ---- restore ----------------------------------------------------------------------------------

class Restore : public JobTest {
protected:
    const Stick stick_{1};
};

TEST_F(Restore, keepsItsFile) {
    device_.order("BR.getBackupSize", "bytes", "18446744073709551615");  // nobody asks
    stick_.addFile("a.psb", "backup");
    EXPECT_EQ(restore(stick_.name(), "a.psb"), 0);
    EXPECT_EQ(readFile(stick_.path("a.psb")), "backup");
}

TEST_F(Restore, startsWithoutItsFile) {
    EXPECT_EQ(restore(stick_.name(), "missing.psb"), 0);
    EXPECT_THAT(device_.calls(),
                ElementsAreArray(completed(restoreFrom(1, stick_.path("missing.psb")))));
}

TEST_F(Restore, createsMissingParents) {
    EXPECT_EQ(restore(stick_.name(), "a/b/x.psb"), 0);
    EXPECT_TRUE(exists(stick_.path("a/b")));
    EXPECT_FALSE(exists(stick_.path("a/b/x.psb")));
}

TEST_F(Restore, endsWithoutController) {
    device_.order("BR.create", "null");
    EXPECT_EQ(restore(stick_.name(), "a.psb"), 0);
    EXPECT_THAT(device_.calls(), ElementsAre("BRCreateController() = null"));
}

// ---- update -----------------------------------------------------------------------------------

class OsUpdate : public JobTest {
protected:
    Stick stick_{1};
};

TEST_F(OsUpdate, refusesMissingFile) {
    std::filesystem::create_symlink("nowhere", stick_.path("dangling.fwf"));
    stick_.addFile("file");
    for (const std::string& file :
         {std::string("a.fwf"), std::string("none/a.fwf"), std::string("dangling.fwf"),
          std::string("file/a.fwf"), std::string(10000, 'x') + ".fwf"}) {
        EXPECT_EQ(update(stick_.name(), file), 5) << file;
    }
    EXPECT_THAT(device_.calls(), IsEmpty());
    EXPECT_THAT(clock_.sleeps(), IsEmpty());
}

TEST_F(OsUpdate, takesFileThatCannotBeWritten) {
    stick_.addFile("a.fwf");
    stick_.makeReadOnly();
    EXPECT_EQ(update(stick_.name(), "a.fwf"), 0);
}

TEST_F(OsUpdate, takesDirectoryForFile) {
    stick_.addDirectory("a.fwf");
    EXPECT_EQ(update(stick_.name(), "a.fwf"), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(completed(updateFrom(1, stick_.path("a.fwf")))));
}

TEST_F(OsUpdate, destroysEvenNullController) {
    stick_.addFile("a.fwf");
    device_.order("FU.create", "null");
    EXPECT_EQ(update(stick_.name(), "a.fwf"), 0);
    EXPECT_THAT(device_.calls(),
                ElementsAre("FUCreateController() = null", "FUDestroyController(null)"));
}

// ---- several jobs of one manager ---------------------------------------------------------------

class JobFields : public JobTest {
protected:
    const Stick first_{1};
    const Stick second_{2, {"16m", "/dev/sdb1"}};
};

TEST_F(JobFields, joinsStringsOfEveryKindOfJob) {
    second_.addFile("d.fwf");
    first_.addFile("e.fwf");
    EXPECT_EQ(backup("USB_X60.1", 3, "a.psb"), 0);
    EXPECT_EQ(restore("USB_X60.2", "b.psb"), 0);
    EXPECT_EQ(update("USB_X60.2", "d.fwf"), 0);
    EXPECT_EQ(update("USB_X60.1", "e.fwf"), 0);
    EXPECT_EQ(backup("USB_X60.1", 9, "/c.psb"), 0);
    const std::string two = "/media/usb/USB_X60.1USB_X60.2";
    const std::string three = two + "USB_X60.2";
    const std::string five = three + "USB_X60.1USB_X60.1";
    EXPECT_THAT(
        device_.calls(),
        ElementsAreArray(completed(sizeQuery(1, "userdatabase")) +
                         completed(backupTo(2, "/media/usb/USB_X60.1/a.psb", "userdatabase")) +
                         completed(restoreFrom(3, two + "/a.psbb.psb")) +
                         completed(updateFrom(1, three + "/d.fwf")) +
                         completed(updateFrom(2, three + "USB_X60.1/d.fwfe.fwf")) +
                         completed(sizeQuery(4, "")) +
                         completed(backupTo(5, five + "/a.psbb.psb/c.psb", ""))));
}

TEST_F(JobFields, ignoresRefusedRequest) {
    EXPECT_EQ(backup("USB_X60.1", 1, "a.txt"), 1);
    EXPECT_EQ(restore("USB_X60.9", "b.psb"), 2);
    EXPECT_EQ(update("USB_X60.1", "c.fwf"), 5);
    device_.orderStatus("BR.connect", 1);
    EXPECT_EQ(backup("USB_X60.1", 1, "d.psb"), 3);
    device_.orderStatus("BR.connect", 0);
    device_.clearRecord();
    EXPECT_EQ(restore("USB_X60.2", "e.psb"), 0);
    EXPECT_THAT(device_.calls(),
                ElementsAreArray(completed(restoreFrom(2, second_.path("e.psb")))));
}

TEST_F(JobFields, makesBackupOfKind0Restore) {
    first_.addFile("a.psb", "kept");
    EXPECT_EQ(backup("USB_X60.1", 0, "a.psb"), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(completed(sizeQuery(1, "")) +
                                                  completed(restoreFrom(2, first_.path("a.psb")))));
    EXPECT_EQ(readFile(first_.path("a.psb")), "kept");
}

TEST_F(JobFields, startsOnMountBaseWithoutIdentifier) {
    EXPECT_EQ(backup("", 1, "a.psb"), 0);
    EXPECT_EQ(restore("", "a.psb"), 0);
    writeFile("/media/usb/x.fwf", "update");
    EXPECT_EQ(update("", "x.fwf"), 0);
    EXPECT_THAT(device_.calls(), ElementsAreArray(completed(sizeQuery(1, "fullbackup")) +
                                                  completed(restoreFrom(2, "/media/usb/")) +
                                                  completed(restoreFrom(3, "/media/usb/")) +
                                                  completed(updateFrom(1, "/media/usb/"))));
    EXPECT_THAT(clock_.sleeps(), ElementsAre(1U, 1U, 1U));
}

TEST_F(JobFields, repeatsEarlierJobWithoutIdentifier) {
    first_.addFile("u.fwf");
    writeFile("/media/usb/x.fwf", "update");
    device_.order("BR.backup", "write", "3");
    EXPECT_EQ(backup("USB_X60.1", 2, "a.psb"), 0);
    EXPECT_EQ(backup("", 1, "b.psb"), 0);
    EXPECT_EQ(restore("", "c.psb"), 0);
    const std::string target = first_.path("a.psb");
    const Calls sameBackup =
        completed(backupTo(2, target, "recipes")) + completed(sizeQuery(3, "fullbackup")) +
        completed(backupTo(4, target, "recipes")) + completed(backupTo(5, target, "recipes"));
    EXPECT_THAT(device_.calls(), ElementsAreArray(completed(sizeQuery(1, "recipes")) + sameBackup));
    EXPECT_EQ(update("", "x.fwf"), 0);
    EXPECT_EQ(device_.calls()[device_.calls().size() - 3], R"(FU1.update("/media/usb/USB_X60.1"))");
}

TEST_F(JobFields, checksJobWithoutIdentifier) {
    EXPECT_EQ(backup("", 1, "a.txt"), 1);
    EXPECT_EQ(restore("", ""), 1);
    EXPECT_EQ(update("", "x.fwf"), 5);
    EXPECT_THAT(device_.calls(), IsEmpty());
}

TEST_F(JobFields, belongsToWorkerThatCopiedIt) {
    first_.addFile("u.fwf");
    device_.order("BR.restore", "hang", device_.gate());
    device_.order("FU.update", "hang", device_.gate());
    EXPECT_EQ(numberOf(manager_.DoRestore("USB_X60.1", "a.psb")), 0);
    EXPECT_TRUE(device_.waitForCall("BR1.restore(\"/media/usb/USB_X60.1/a.psb\")"));
    EXPECT_EQ(numberOf(manager_.DoRestore("USB_X60.2", "b.psb")), 0);
    EXPECT_TRUE(device_.waitForCall("BR2.restore(\"/media/usb/USB_X60.1USB_X60.2/a.psbb.psb\")"));
    EXPECT_EQ(numberOf(manager_.DoOSUpdate("USB_X60.1", "u.fwf")), 0);
    EXPECT_TRUE(device_.waitForCall("FU1.update"));

    std::set<int> workers;
    for (const DoubleRecord& call : device_.records()) {
        EXPECT_FALSE(call.onMainThread) << call.entry;
        workers.insert(call.thread);
    }
    EXPECT_EQ(workers.size(), 3U) << "each job has a thread of its own";
    device_.openGate();
    waitForWorkers();
    EXPECT_EQ(device_.calls().size(), 3 * completed(restoreFrom(1, "")).size());
}

}  // namespace
}  // namespace test_support
