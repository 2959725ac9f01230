// The commands that start a job: backup, restore, update.
#include "transferctl/commands.h"
#include "transferctl/job_codes.h"
#include "transferctl/job_guard.h"
#include "transferctl/json_text.h"
#include "transferctl/looking.h"
#include "transferctl/output.h"
#include "transferctl/shown_text.h"
#include "transferctl/transfer_client.h"
#include "transferctl/units.h"
#include "transferctl/wait_for_backup.h"

namespace transferctl {
namespace {

constexpr std::string_view kBackupEnding = ".psb";

bool endsWith(std::string_view text, std::string_view ending) {
    return text.size() >= ending.size() && text.substr(text.size() - ending.size()) == ending;
}

JsonBuilding jobJson(Job job, const StickPath& file, bool done) {
    JsonBuilding json;
    json.text("job", nameOf(job))
        .text("file", file.text())
        .truth("started", true)
        .truth("done", done);
    return json;
}

void printStarted(Job job, const StickPath& file, const char* whatNext, const Options& options) {
    if (options.json) {
        print(jobJson(job, file, false).line());
    } else {
        print(std::string(nameOf(job)) + " started, not done: " + shownSafely(file.text()) + "\n" +
              whatNext + "\n");
    }
}

void printDone(const StickPath& file, const FinishedBackup& finished, const Options& options) {
    if (options.json) {
        JsonBuilding json = jobJson(Job::kBackup, file, true);
        json.number("size", finished.size)
            .number("milliseconds", static_cast<std::uint64_t>(finished.time.count()));
        print(json.line());
    } else {
        print("backup done: " + shownSafely(file.text()) + ", " + humanSize(finished.size) +
              " in " + humanDuration(finished.time) + "\n");
    }
}

using Start = std::function<int()>;

// Starts a job once in a life of the service. Throws Failure unless the service answers "started".
void startOnce(TransferClient& client, Job job, const StickPath& file, const Options& options,
               const Start& start) {
    JobGuard guard(client, job, file, options.force);
    const int code = guard.settle(start);
    if (code != 0) {
        throw Failure(ExitStatus::kRefused, meaningOf(code) + ": " + file.text(), code);
    }
}

// What the command's argument and --name say: the directory, or the file itself. Without a name the
// service proposes one.
struct BackupTarget {
    StickPath directory;
    std::optional<std::string> name;
};

BackupTarget targetOf(const Options& options) {
    const StickPath place = parseStickPath(options.arguments.front());
    BackupTarget target{place, options.name};
    if (!options.name && endsWith(place.name(), kBackupEnding)) {
        target = {place.parent(), std::string(place.name())};
    }
    if (target.name) {
        checkNewName(*target.name);
    }
    checkNewDirectory(target.directory);
    return target;
}

std::string nameOrProposal(TransferClient& client, const BackupTarget& target) {
    std::string name = target.name ? *target.name : client.backupName();
    if (name.empty()) {
        throw Failure(ExitStatus::kRefused,
                      "the device's name cannot be read, so there is no proposal: give --name");
    }
    return name;
}

// A file of the name would be removed by the service in the middle of the job, and until then be
// taken for the finished backup.
void makeRoom(TransferClient& client, const StickPath& file, bool force) {
    const std::optional<File> old = findFile(client, file);
    if (!old) {
        return;
    }
    if (!force) {
        throw Failure(ExitStatus::kRefused, "exists already, --force replaces it: " + file.text());
    }
    if (!client.deleteFile(file)) {
        throw Failure(ExitStatus::kRefused, "cannot be replaced: " + file.text());
    }
}

StickPath existingFile(TransferClient& client, const Options& options) {
    StickPath file = parseStickPath(options.arguments.front());
    requireMounted(client, file.stick);
    return file;
}

}  // namespace

void startBackup(const Options& options) {
    const std::optional<std::uint32_t> type = backupTypeNamed(options.type);
    if (!type) {
        throw Failure(ExitStatus::kUsage, "--type is full, recipes or users, not " + options.type);
    }
    const BackupTarget target = targetOf(options);
    TransferClient client{Deadline(options.limit())};
    requireMounted(client, target.directory.stick);
    const StickPath file = target.directory.child(nameOrProposal(client, target));
    JobGuard::check(client, options.force);
    makeRoom(client, file, options.force);
    const auto start = std::chrono::steady_clock::now();
    startOnce(client, Job::kBackup, file, options, [&] { return client.startBackup(file, *type); });
    if (options.wait) {
        printDone(file, waitForBackup(client, file, start, !options.json), options);
    } else {
        printStarted(Job::kBackup, file, "It is done when 'transferctl backups' shows the file.",
                     options);
    }
}

void startRestore(const Options& options) {
    parseStickPath(options.arguments.front());
    TransferClient client{Deadline(options.limit())};
    const StickPath file = existingFile(client, options);
    // The service does not look: it would start, fail in silence and use up its one job.
    if (!file.isHidden() && !findFile(client, file)) {
        throw Failure(ExitStatus::kRefused, "no such file: " + file.text());
    }
    startOnce(client, Job::kRestore, file, options, [&] { return client.startRestore(file); });
    printStarted(Job::kRestore, file, "The service reports no end: look at the device.", options);
}

void startUpdate(const Options& options) {
    parseStickPath(options.arguments.front());
    TransferClient client{Deadline(options.limit())};
    const StickPath file = existingFile(client, options);
    startOnce(client, Job::kUpdate, file, options, [&] { return client.startUpdate(file); });
    printStarted(Job::kUpdate, file, "The service reports no end: look at the device.", options);
}

}  // namespace transferctl
