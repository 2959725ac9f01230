// Follows a backup that runs: when it is done, when it has failed, how fast it is.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace transferctl {

// One look at the stick after another. The service reports no end of a job; done is a backup whose
// file the device manager accepts, failed is one whose file was there and has gone.
class BackupWatch {
public:
    enum class State { kRunning, kDone, kFailed };

    // Takes in the file's size in the directory's listing, nothing when it is not listed.
    void sawSize(std::optional<std::uint64_t> size);

    // Takes in whether the device manager accepts the file.
    void sawAcceptance(bool accepted);

    // Whether it is worth asking the device manager, which reads the whole file for an answer: the
    // file is there and was as long at the look before, or this is the first look.
    bool mayBeAccepted() const { return settled_; }

    State state() const { return state_; }
    std::uint64_t size() const { return size_.value_or(0); }

private:
    std::optional<std::uint64_t> size_;
    bool first_ = true;
    bool settled_ = false;
    int missing_ = 0;  // looks in a row that did not find a file found before
    State state_ = State::kRunning;
};

// A line that shows that something goes on, its size and rate: the service tells no total, so the
// mark in the bar wanders. At most `width` columns.
std::string progressLine(std::uint64_t bytes, std::chrono::milliseconds elapsed, std::size_t width);

}  // namespace transferctl
