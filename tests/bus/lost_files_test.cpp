// Files are never lost to calls over the bus: only what a call names may differ after it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/bus/job_calls.h"
#include "tests/bus/steady_service.h"
#include "tests/support/device/device_double.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/file_snapshot.h"
#include "tests/support/files/files.h"
#include "tests/support/files/odd_sticks.h"

namespace test_support {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kCalls = 150;

class FilesOnSticks : public SteadyServiceWithDouble {};

class RandomCall : public FilesOnSticks, public testing::WithParamInterface<unsigned> {
protected:
    RandomCall() { device_.orderStatus("BR.connect", 1); }  // no job begins

    Reply call(const std::string& method, const std::string& mount, const std::string& path) const {
        return method == "DoBackup"
                   ? bus_.transfer(method, g_variant_new("(sus)", mount.c_str(), 1U, path.c_str()))
                   : bus_.transfer(method, g_variant_new("(ss)", mount.c_str(), path.c_str()));
    }

    OddSticks sticks_{GetParam()};
};

TEST_P(RandomCall, changesOnlyWhatItNames) {
    static const std::vector<std::string> kMethods{
        "DeleteFile",         "DeleteFile", "CreateDirectory",           "DoBackup",
        "GetBackupFilesList", "DoBackup",   "GetDirectoryIndexForUpdate"};
    for (int number = 0; number < kCalls && !HasFailure(); ++number) {
        const std::string method = sticks_.oneOf(kMethods);
        const std::string mount = sticks_.mount();
        const std::string file = sticks_.path();
        const std::string target = targetOf(mount, file);
        if (!staysOnSticks(target)) {
            continue;
        }
        SCOPED_TRACE(method + " '" + mount + "' '" + file + "'");
        const std::string named = physicalPath(target);
        const FileSnapshot before = snapshotOf("/media");
        const Reply reply = call(method, mount, file);
        EXPECT_EQ(reply.error, "");
        const FileSnapshot after = snapshotOf("/media");
        const std::vector<std::string> changed = changedPaths(before, after);
        if (method == "DeleteFile" && reply.text() == "(true,)") {
            EXPECT_THAT(changed, ElementsAre(named));
            EXPECT_EQ(after.count(named), 0U);
        } else if (method == "CreateDirectory" && reply.text() == "(true,)") {
            EXPECT_TRUE(addsOnlyDirectories(before, after));
        } else {
            EXPECT_THAT(changed, IsEmpty());
        }
    }
}

INSTANTIATE_TEST_SUITE_P(WithSeed, RandomCall, testing::Range(0U, 3U));

TEST_F(FilesOnSticks, changeByBackupOnlyInItsFile) {
    const Stick stick(1);
    stick.addFile("a.psb", "old");
    stick.addFile("b.psb");
    device_.order("BR.backup", "write", "5");
    const FileSnapshot before = snapshotOf("/media");
    EXPECT_EQ(doBackup(bus_, stick.name(), 1, "a.psb"), 0);
    ASSERT_TRUE(device_.waitForCall("BRDestroyController(BR2)"));
    EXPECT_THAT(changedPaths(before, snapshotOf("/media")), ElementsAre(stick.path("a.psb")));
    EXPECT_EQ(readFile(stick.path("a.psb")), "bbbbb");
}

#if !defined(__SANITIZE_THREAD__)  // its threads take memory of their own
TEST_F(FilesOnSticks, stayWhenBackupHasNoThread) {
    if (const std::string reason = whyMemoryIsNotItsOwn(); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    const Stick stick(1);
    stick.addFile("a.psb", "old");
    ASSERT_TRUE(service_.forbidThreads());
    EXPECT_EQ(doBackup(bus_, stick.name(), 1, "a.psb"), -1);
    EXPECT_EQ(readFile(stick.path("a.psb")), "old");
}
#endif

}  // namespace
}  // namespace test_support
