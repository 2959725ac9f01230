// The transfer manager's beginning and end: the enabled file and the transfer script.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "tests/support/device/transfer_script.h"
#include "tests/support/files/files.h"
#include "transfer/tf_mngr.h"

namespace test_support {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kStop = "TF_STATE_SNC_STOP true true";

class TransferManager : public testing::Test {
protected:
    TransferManager() { forget(); }
    ~TransferManager() override { forget(); }

    static void forget() {
        unlink(kEnabledFile);
        clearTransferScriptRuns();
    }
};

TEST_F(TransferManager, createsEnabledFileAndRunsStartCommand) {
    const TfMngr manager;
    EXPECT_TRUE(exists(kEnabledFile));
    EXPECT_EQ(readFile(kEnabledFile), "");
    EXPECT_THAT(transferScriptRuns(), ElementsAre(kScriptStart));
}

TEST_F(TransferManager, runsStopCommandAndKeepsEnabledFile) {
    auto manager = std::make_unique<TfMngr>();
    manager.reset();
    EXPECT_THAT(transferScriptRuns(), ElementsAre(kScriptStart, kStop));
    EXPECT_TRUE(exists(kEnabledFile));
}

TEST_F(TransferManager, returnsStatusOfScript) {
    const TransferScript script("exit 7");
    TfMngr manager;
    unlink(kEnabledFile);
    const int status = manager.announceStart();
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 7);
    EXPECT_TRUE(exists(kEnabledFile));
    EXPECT_THAT(transferScriptRuns(), ElementsAre(kScriptStart, kScriptStart));
}

TEST_F(TransferManager, goesOnWithoutEnabledFileAndScript) {
    ASSERT_EQ(symlink("/nowhere/enabled", kEnabledFile), 0);
    ASSERT_EQ(rename("/etc/morvane", "/etc/morvane-away"), 0);
    {
        TfMngr manager;
        EXPECT_NE(manager.announceStart(), 0);
    }
    ASSERT_EQ(rename("/etc/morvane-away", "/etc/morvane"), 0);
    EXPECT_THAT(transferScriptRuns(), IsEmpty());
}

}  // namespace
}  // namespace test_support
