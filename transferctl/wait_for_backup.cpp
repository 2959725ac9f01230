// Waiting for the end of a backup, which the service does not report.
#include "transferctl/wait_for_backup.h"

#include <algorithm>
#include <cstdio>
#include <thread>

#include "transferctl/backup_watch.h"
#include "transferctl/looking.h"
#include "transferctl/output.h"

namespace transferctl {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPause{500};
constexpr const char* kClearLine = "\r\033[K";

// The line that is drawn over and over, cleared at the end whatever that is.
class ProgressDisplay {
public:
    explicit ProgressDisplay(bool wanted) : isShown_(wanted && notesGoToTerminal()) {}
    ~ProgressDisplay() {
        if (isShown_) {
            std::fputs(kClearLine, stderr);
        }
    }
    ProgressDisplay(const ProgressDisplay&) = delete;
    ProgressDisplay& operator=(const ProgressDisplay&) = delete;

    void show(std::uint64_t bytes, std::chrono::milliseconds elapsed) const {
        if (isShown_) {
            const std::string line = progressLine(bytes, elapsed, terminalWidth() - 1);
            std::fprintf(stderr, "%s%s", kClearLine, line.c_str());
        }
    }

private:
    bool isShown_;
};

bool isAccepted(TransferClient& client, const StickPath& file) {
    const std::vector<File> accepted = client.backups(file.parent());
    return std::any_of(accepted.begin(), accepted.end(),
                       [&file](const File& one) { return one.place.path == file.path; });
}

void look(TransferClient& client, const StickPath& file, BackupWatch* watch) {
    const std::optional<File> listed = findFile(client, file);
    watch->sawSize(listed ? std::make_optional(listed->size) : std::nullopt);
    if (watch->mayBeAccepted()) {
        watch->sawAcceptance(isAccepted(client, file));
    }
}

[[noreturn]] void sayWhyItIsGone(TransferClient& client, const StickPath& file) {
    requireMounted(client, file.stick);
    throw Failure(ExitStatus::kRefused,
                  "the backup has failed, its file is gone again: " + file.text());
}

// What a failed look means for the job.
[[noreturn]] void explain(const Failure& failure, const StickPath& file) {
    if (failure.status() == ExitStatus::kNoService) {
        throw Failure(ExitStatus::kNoService,
                      "the service has ended, and the backup with it: " + file.text());
    }
    if (failure.status() == ExitStatus::kTimeLimit) {
        throw Failure(
            ExitStatus::kTimeLimit,
            "the device manager has not accepted the file within the time limit, the backup "
            "may still run: " +
                file.text());
    }
    throw failure;
}

}  // namespace

FinishedBackup waitForBackup(TransferClient& client, const StickPath& file, Clock::time_point start,
                             bool showProgress) {
    const ProgressDisplay display(showProgress);
    const auto elapsed = [start] {
        return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    };
    BackupWatch watch;
    while (true) {
        try {
            look(client, file, &watch);
        } catch (const Failure& failure) {
            explain(failure, file);
        }
        display.show(watch.size(), elapsed());
        if (watch.state() == BackupWatch::State::kDone) {
            return {watch.size(), elapsed()};
        }
        if (watch.state() == BackupWatch::State::kFailed) {
            sayWhyItIsGone(client, file);
        }
        std::this_thread::sleep_for(kPause);
    }
}

}  // namespace transferctl
