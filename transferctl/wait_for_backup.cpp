// Waiting for the end of a backup, which the service does not report.
#include "transferctl/wait_for_backup.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <thread>

#include "transferctl/output.h"

namespace transferctl {
namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

constexpr Milliseconds kPause{500};
constexpr int kMissingLooks = 3;  // in a row: then the file is gone
constexpr const char* kClearLine = "\r\033[K";

// A line on the terminal that is drawn again and again, and cleared at the end.
class Progress {
public:
    explicit Progress(bool isShown) : isShown_(isShown) {}
    ~Progress() { draw(""); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show(std::uint64_t bytes, Milliseconds elapsed) const {
        const double seconds = std::chrono::duration<double>(elapsed).count();
        const double rate = static_cast<double>(bytes) / std::max(seconds, 1.0);
        draw(humanSize(bytes) + "  " + humanSize(static_cast<std::uint64_t>(rate)) + "/s  " +
             humanDuration(elapsed));
    }

private:
    void draw(const std::string& line) const {
        if (isShown_) {
            std::fputs((kClearLine + line).c_str(), stderr);
        }
    }

    bool isShown_;
};

bool isAccepted(TransferClient* client, const StickPath& file) {
    const std::vector<File> accepted = client->backups({file.stick, file.path.parent_path()});
    return std::any_of(accepted.begin(), accepted.end(),
                       [&file](const File& one) { return one.place.path == file.path; });
}

// What a failed look means for the job.
Failure explained(const Failure& failure, const StickPath& file) {
    switch (failure.status()) {
        case ExitStatus::kNoService:
            return noService("the service has ended, and the backup with it: " + file.text());
        case ExitStatus::kTimeLimit:
            return {ExitStatus::kTimeLimit,
                    "the device manager has not accepted the file within the time limit, the "
                    "backup may still run: " +
                        file.text()};
        default:
            return failure;
    }
}

FinishedBackup watch(TransferClient* client, const StickPath& file, Clock::time_point begin,
                     const Progress& progress) {
    std::optional<std::uint64_t> size;
    int missing = 0;
    for (bool isFirst = true;; isFirst = false) {
        const std::optional<File> now = client->find(file);
        // The device manager reads the whole file to accept it: it is not asked while the file
        // grows.
        const bool isSettled = now && (isFirst || now->size == size);
        if (now) {
            size = now->size;
            missing = 0;
        } else if (size && ++missing == kMissingLooks) {
            client->requireMounted(file.stick);
            throw refused("the backup has failed, its file has gone again: " + file.text());
        }
        const auto elapsed = std::chrono::duration_cast<Milliseconds>(Clock::now() - begin);
        progress.show(size.value_or(0), elapsed);
        if (isSettled && isAccepted(client, file)) {
            return {*size, elapsed};
        }
        std::this_thread::sleep_for(kPause);
    }
}

}  // namespace

FinishedBackup waitForBackup(TransferClient* client, const StickPath& file, Clock::time_point begin,
                             bool showsProgress) {
    const Progress progress(showsProgress && isatty(STDERR_FILENO) != 0);
    try {
        return watch(client, file, begin, progress);
    } catch (const Failure& failure) {
        throw explained(failure, file);
    }
}

}  // namespace transferctl
