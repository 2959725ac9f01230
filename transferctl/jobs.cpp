// The job that this user has started last, and waiting for the end of a backup.
#include "transferctl/jobs.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <thread>

#include "transferctl/output.h"

namespace transferctl {
namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

constexpr Milliseconds kPause{500};
constexpr int kMissingLooks = 3;  // in a row: then the file is gone

// Root has one record, whatever session it works in.
std::string recordPath() {
    return std::string(geteuid() == 0 ? "/run" : g_get_user_runtime_dir()) + "/transferctl-job";
}

struct CloseFile {
    void operator()(FILE* file) const { std::fclose(file); }
};

// Until it is closed, no other command of this user looks at the record. Null when the file cannot
// be opened.
std::unique_ptr<FILE, CloseFile> lockRecord() {
    const int fd =
        open((recordPath() + ".lock").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    std::unique_ptr<FILE, CloseFile> lock(fdopen(fd, "w"));
    flock(fd, LOCK_EX);
    return lock;
}

std::string readRecord() {
    g_autofree gchar* record = nullptr;
    g_file_get_contents(recordPath().c_str(), &record, nullptr, nullptr);
    return record != nullptr ? record : "";
}

void writeRecord(const std::string& record) {
    g_autoptr(GError) error = nullptr;
    if (g_file_set_contents(recordPath().c_str(), record.c_str(), -1, &error) == FALSE) {
        note(std::string("the job is not on record, so a second one will not be refused: ") +
             error->message);
    }
}

// Draws a line of the terminal again.
void draw(const std::string& line, bool isShown) {
    if (isShown) {
        std::fputs(("\r\033[K" + line).c_str(), stderr);
    }
}

std::string progress(std::uint64_t bytes, Milliseconds elapsed) {
    const double seconds = std::chrono::duration<double>(elapsed).count();
    const double rate = static_cast<double>(bytes) / std::max(seconds, 1.0);
    return humanSize(bytes) + "  " + humanSize(static_cast<std::uint64_t>(rate)) + "/s  " +
           humanDuration(elapsed);
}

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
                     bool showsProgress) {
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
        draw(progress(size.value_or(0), elapsed), showsProgress);
        if (isSettled && isAccepted(client, file)) {
            return {*size, elapsed};
        }
        std::this_thread::sleep_for(kPause);
    }
}

}  // namespace

std::optional<StartedJob> startedJob(const TransferClient& client) {
    g_auto(GStrv) lines = g_strsplit(readRecord().c_str(), "\n", 3);
    const bool isCurrent = g_strv_length(lines) == 3 && lines[0] == client.identity();
    return isCurrent ? std::make_optional(StartedJob{lines[1], lines[2]}) : std::nullopt;
}

void startOnce(const TransferClient& client, const StartedJob& job, bool isForced,
               const std::function<void()>& start) {
    auto lock = lockRecord();
    const std::optional<StartedJob> first = startedJob(client);
    if (first && !isForced) {
        throw refused("you have started a " + first->job + " of " + first->file +
                      " already, and the service would work on the names of both jobs: "
                      "restart the service first, or use --force");
    }
    const std::string before = readRecord();
    writeRecord(client.identity() + "\n" + job.job + "\n" + job.file);
    lock.reset();  // another command now finds the record, and need not wait for the service
    try {
        start();
    } catch (const Failure& failure) {
        // With these codes, or without one from a bus that refuses, no name has been taken.
        if (failure.status() == ExitStatus::kRefused && failure.code().value_or(1) > 0) {
            writeRecord(before);
        }
        throw;
    }
}

FinishedBackup waitForBackup(TransferClient* client, const StickPath& file, Clock::time_point begin,
                             bool showsProgress) {
    showsProgress = showsProgress && isatty(STDERR_FILENO) != 0;
    try {
        const FinishedBackup backup = watch(client, file, begin, showsProgress);
        draw("", showsProgress);
        return backup;
    } catch (const Failure& failure) {
        draw("", showsProgress);
        throw explained(failure, file);
    }
}

}  // namespace transferctl
