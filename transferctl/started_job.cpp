// The job that this user has started last, on record in a file of the runtime directory.
#include "transferctl/started_job.h"

#include <unistd.h>

#include "transferctl/output.h"

namespace transferctl {
namespace {

// Root has one record, whatever session it works in.
std::string recordPath() {
    return std::string(geteuid() == 0 ? "/run" : g_get_user_runtime_dir()) + "/transferctl-job";
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

}  // namespace

std::optional<StartedJob> startedJob(const TransferClient& client) {
    g_auto(GStrv) lines = g_strsplit(readRecord().c_str(), "\n", 3);
    const bool isCurrent = g_strv_length(lines) == 3 && lines[0] == client.identity();
    return isCurrent ? std::make_optional(StartedJob{lines[1], lines[2]}) : std::nullopt;
}

void startOnce(const TransferClient& client, const StartedJob& job, bool isForced,
               const std::function<void()>& start) {
    const std::optional<StartedJob> first = startedJob(client);
    if (first && !isForced) {
        throw refused("you have started a " + first->job + " of " + first->file +
                      " already, and the service would work on the names of both jobs: "
                      "restart the service first, or use --force");
    }
    const std::string before = readRecord();
    writeRecord(client.identity() + "\n" + job.job + "\n" + job.file);
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

}  // namespace transferctl
