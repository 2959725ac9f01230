// Follows a backup that runs: when it is done, when it has failed, how fast it is.
#include "transferctl/backup_watch.h"

#include <algorithm>

#include "transferctl/units.h"

namespace transferctl {
namespace {

constexpr int kMissingLooks = 3;  // then the file counts as removed
constexpr std::size_t kWidestBar = 30;
constexpr std::size_t kMarkWidth = 6;
constexpr std::chrono::milliseconds kStep{250};

// A mark that goes from end to end and back, a column a step.
std::string bar(std::chrono::milliseconds elapsed, std::size_t width) {
    const std::size_t room = width - kMarkWidth;
    const auto steps = static_cast<std::size_t>(elapsed / kStep) % (2 * room);
    const std::size_t before = steps <= room ? steps : 2 * room - steps;
    return "[" + std::string(before, ' ') + std::string(kMarkWidth, '=') +
           std::string(room - before, ' ') + "]";
}

}  // namespace

void BackupWatch::sawSize(std::optional<std::uint64_t> size) {
    settled_ = size && (first_ || size == size_);
    first_ = false;
    if (size) {
        size_ = size;
        missing_ = 0;
    } else if (size_ && ++missing_ == kMissingLooks) {
        state_ = State::kFailed;
    }
}

void BackupWatch::sawAcceptance(bool accepted) {
    if (accepted) {
        state_ = State::kDone;
    }
}

std::string progressLine(std::uint64_t bytes, std::chrono::milliseconds elapsed,
                         std::size_t width) {
    const std::string numbers =
        humanSize(bytes) + "  " + humanRate(bytes, elapsed) + "  " + humanDuration(elapsed);
    const std::size_t taken = numbers.size() + std::string("[]  ").size();
    if (width <= taken + kMarkWidth) {
        return numbers.substr(0, width);
    }
    return bar(elapsed, std::min(width - taken, kWidestBar)) + "  " + numbers;
}

}  // namespace transferctl
