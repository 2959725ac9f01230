// When a backup counts as done or failed, and what a bus error means.
#include <gio/gio.h>
#include <gtest/gtest.h>

#include "transferctl/backup_watch.h"
#include "transferctl/bus_failure.h"
#include "transferctl/job_codes.h"

namespace transferctl {
namespace {

using State = BackupWatch::State;

TEST(BackupWatch, asksTheDeviceManagerAtFirstAndWhenTheFileHasStoppedGrowing) {
    BackupWatch watch;
    EXPECT_FALSE(watch.mayBeAccepted());
    watch.sawSize(10);
    EXPECT_TRUE(watch.mayBeAccepted());
    watch.sawAcceptance(false);
    watch.sawSize(20);
    EXPECT_FALSE(watch.mayBeAccepted());
    watch.sawSize(20);
    EXPECT_TRUE(watch.mayBeAccepted());
    EXPECT_EQ(watch.state(), State::kRunning);
    watch.sawAcceptance(true);
    EXPECT_EQ(watch.state(), State::kDone);
    EXPECT_EQ(watch.size(), 20U);
}

TEST(BackupWatch, waitsForAFileThatIsNotThereYet) {
    BackupWatch watch;
    for (int look = 0; look < 100; ++look) {
        watch.sawSize(std::nullopt);
        EXPECT_FALSE(watch.mayBeAccepted());
    }
    EXPECT_EQ(watch.state(), State::kRunning);
    watch.sawSize(1);
    EXPECT_FALSE(watch.mayBeAccepted());  // it has just begun to grow
}

TEST(BackupWatch, givesUpAFileThatStaysAway) {
    BackupWatch watch;
    watch.sawSize(1);
    watch.sawSize(std::nullopt);
    watch.sawSize(std::nullopt);
    watch.sawSize(2);
    watch.sawSize(std::nullopt);
    watch.sawSize(std::nullopt);
    EXPECT_EQ(watch.state(), State::kRunning);
    watch.sawSize(std::nullopt);
    EXPECT_EQ(watch.state(), State::kFailed);
}

ExitStatus statusOf(GQuark domain, int code) {
    g_autoptr(GError) error = g_error_new_literal(domain, code, "text");
    return failureOf(error).status();
}

TEST(BusFailure, hasTheExitStatusOfItsKind) {
    EXPECT_EQ(statusOf(G_DBUS_ERROR, G_DBUS_ERROR_ACCESS_DENIED), ExitStatus::kRefused);
    EXPECT_EQ(statusOf(G_DBUS_ERROR, G_DBUS_ERROR_TIMEOUT), ExitStatus::kTimeLimit);
    EXPECT_EQ(statusOf(G_IO_ERROR, G_IO_ERROR_TIMED_OUT), ExitStatus::kTimeLimit);
    EXPECT_EQ(statusOf(G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN), ExitStatus::kNoService);
    EXPECT_EQ(statusOf(G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY), ExitStatus::kNoService);
    EXPECT_EQ(statusOf(G_IO_ERROR, G_IO_ERROR_CLOSED), ExitStatus::kNoService);
}

TEST(JobCodes, areToldInWords) {
    EXPECT_NE(meaningOf(-1).find("no thread"), std::string::npos);
    EXPECT_NE(meaningOf(1).find("bad file name"), std::string::npos);
    EXPECT_NE(meaningOf(2).find("not mounted"), std::string::npos);
    EXPECT_NE(meaningOf(3).find("not enough space"), std::string::npos);
    EXPECT_NE(meaningOf(5).find("no such file"), std::string::npos);
    EXPECT_NE(meaningOf(-2000000000).find("-2000000000"), std::string::npos);
}

TEST(JobCodes, tellWhetherTheNextJobWouldBeJoinedToThisOne) {
    for (const int code : {0, -1, 4, 77}) {
        EXPECT_TRUE(leavesTexts(code)) << code;
    }
    for (const int code : {1, 2, 3, 5}) {
        EXPECT_FALSE(leavesTexts(code)) << code;
    }
}

}  // namespace
}  // namespace transferctl
