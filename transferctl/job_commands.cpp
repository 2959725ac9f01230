// The commands that start a job: backup, restore, update.
#include "transferctl/commands.h"
#include "transferctl/jobs.h"
#include "transferctl/output.h"

namespace transferctl {
namespace {

std::string meaningOf(JobResult result) {
    switch (result) {
        case JobResult::NoThread:
            return "the service cannot create a thread";
        case JobResult::BadFileName:
            return std::string("bad file name (a backup has '") + kBackupMarker +
                   "' in it, an update '" + kUpdateMarker + "')";
        case JobResult::StickNotMounted:
            return "stick not mounted";
        case JobResult::NotEnoughSpace:
            return "not enough space, or the device manager does not tell the size";
        case JobResult::FileMissing:
            return "no such file";
        default:
            return "unknown result code " + std::to_string(static_cast<int>(result));
    }
}

void requireStarted(JobResult result, const StickPath& file) {
    if (result != JobResult::Started) {
        throw refused(meaningOf(result) + ": " + file.text(), static_cast<int>(result));
    }
}

void printStarted(const StartedJob& job, const char* whatNext, const Options& options) {
    if (options.json) {
        printJson(
            g_variant_new_parsed("{'job': <%s>, 'file': <%s>, 'started': <true>, 'done': <false>}",
                                 job.job.c_str(), job.file.c_str()));
    } else {
        print(job.job + " started, not done: " + safeText(job.file) + "\n" + whatNext + "\n");
    }
}

void printDone(const StartedJob& job, const FinishedBackup& backup, const Options& options) {
    if (options.json) {
        printJson(
            g_variant_new_parsed("{'job': <%s>, 'file': <%s>, 'started': <true>, 'done': "
                                 "<true>, 'size': <%x>, 'milliseconds': <%x>}",
                                 job.job.c_str(), job.file.c_str(), jsonNumber(backup.size),
                                 gint64{backup.time.count()}));
    } else {
        print("backup done: " + safeText(job.file) + ", " + humanSize(backup.size) + " in " +
              humanDuration(backup.time) + "\n");
    }
}

// Where the backup goes: a directory, and a name unless the service is to propose one.
struct BackupTarget {
    StickPath directory;
    std::optional<std::string> name;
};

BackupTarget targetIn(const Options& options) {
    BackupTarget target{parseStickPath(options.arguments.front()), options.name};
    std::filesystem::path& path = target.directory.path;
    if (!target.name && g_str_has_suffix(path.c_str(), kBackupMarker) != FALSE) {
        target.name = path.filename();
        path = path.parent_path();
    }
    if (target.name) {
        checkNewName(*target.name);
    }
    checkNewDirectory(target.directory);
    return target;
}

// The service would remove an old file in the middle of the job; until then --wait would take it
// for the finished backup.
void removeOld(TransferClient* client, const StickPath& file, const Options& options) {
    if (!client->find(file)) {
        return;
    }
    if (!options.force) {
        throw refused("exists already, --force replaces it: " + file.text());
    }
    if (!client->deleteFile(file)) {
        throw refused("cannot be replaced: " + file.text());
    }
}

using Call = JobResult (TransferClient::*)(const StickPath& file);

void startWithFile(const char* job, Call call, const Options& options) {
    const StickPath file = parseStickPath(options.arguments.front());
    TransferClient client{Deadline(options.limit)};
    client.requireMounted(file.stick);
    // The service would start a restore of a missing file, and nobody would see it fail.
    if (!file.isHidden() && !client.find(file)) {
        throw refused("no such file: " + file.text());
    }
    const StartedJob started{job, file.text()};
    startOnce(client, started, options.force, [&] { requireStarted((client.*call)(file), file); });
    printStarted(started, "The service does not report the end: look at the device.", options);
}

}  // namespace

void startBackup(const Options& options) {
    const BackupTarget target = targetIn(options);
    TransferClient client{Deadline(options.limit)};
    client.requireMounted(target.directory.stick);
    const std::string name = target.name ? *target.name : client.proposedName();
    const StickPath file{target.directory.stick, target.directory.path / name};
    const StartedJob job{"backup", file.text()};
    const auto begin = std::chrono::steady_clock::now();
    startOnce(client, job, options.force, [&] {
        removeOld(&client, file, options);
        requireStarted(client.startBackup(file, options.kind), file);
    });
    if (options.wait) {
        printDone(job, waitForBackup(&client, file, begin, !options.json), options);
    } else {
        printStarted(job, "It is done when 'transferctl backups' lists the file.", options);
    }
}

void startRestore(const Options& options) {
    startWithFile("restore", &TransferClient::startRestore, options);
}

void startUpdate(const Options& options) {
    startWithFile("update", &TransferClient::startUpdate, options);
}

}  // namespace transferctl
