// The transfer script that the service runs, as a test wants it.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/files/files.h"

namespace test_support {

// What a start makes before it runs the script.
constexpr const char* kTransferMarker = "/tmp/transfer.enabled";
// The arguments of the script's run at a start.
constexpr const char* kScriptStart = "TF_STATE_SNC_START true true";

// The arguments of every run of the sandbox's transfer script by now, one line a run.
std::vector<std::string> transferScriptRuns();
void clearTransferScriptRuns();

// Puts other commands in the place of the transfer script and, at its end, the old script back. The
// runs are noted as ever.
class TransferScript {
public:
    // `commands` are lines for the shell, run after the arguments ("$@") have been noted.
    explicit TransferScript(const std::string& commands);
    ~TransferScript();
    TransferScript(const TransferScript&) = delete;
    TransferScript& operator=(const TransferScript&) = delete;

private:
    std::string before_;
};

// A script that returns on release(): until then the service stands still in its start, before it
// has the name. Every later run returns at once.
class HeldTransferScript {
public:
    // `commands` are run first.
    explicit HeldTransferScript(const std::string& commands = "");
    ~HeldTransferScript() { release(); }
    HeldTransferScript(const HeldTransferScript&) = delete;
    HeldTransferScript& operator=(const HeldTransferScript&) = delete;

    // Waits until a service has come to the script.
    testing::AssertionResult waitUntilEntered() const;
    void release() const;

private:
    TemporaryDirectory folder_;
    TransferScript script_;
};

}  // namespace test_support
