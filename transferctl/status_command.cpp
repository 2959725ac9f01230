// The command that tells whether the service is there and answers.
#include "transferctl/commands.h"
#include "transferctl/job_guard.h"
#include "transferctl/json_text.h"
#include "transferctl/output.h"
#include "transferctl/shown_text.h"
#include "transferctl/transfer_client.h"

namespace transferctl {
namespace {

struct Status {
    std::string owner;
    std::optional<unsigned> process;
    std::size_t sticks = 0;
    std::optional<JobNote> job;
};

void printJson(const Status& status) {
    JsonBuilding json;
    json.truth("running", true).text("owner", status.owner);
    status.process ? json.number("pid", *status.process) : json.null("pid");
    json.number("sticks", status.sticks);
    if (status.job) {
        JsonBuilding job;
        job.text("job", status.job->job).text("file", status.job->file);
        json.object("job", job);
    } else {
        json.null("job");
    }
    print(json.line());
}

std::string processText(const Status& status) {
    return status.process ? ", process " + std::to_string(*status.process) : "";
}

std::string jobText(const Status& status) {
    return status.job ? "you have started one in this life of the service: " + status.job->job +
                            " of " + shownSafely(status.job->file)
                      : "none started by you in this life of the service";
}

void printText(const Status& status) {
    print("service  running as " + shownSafely(status.owner) + processText(status) + "\n" +
          "sticks   " + std::to_string(status.sticks) + "\n" + "job      " + jobText(status) +
          "\n");
}

}  // namespace

void showStatus(const Options& options) {
    TransferClient client{Deadline(options.limit())};
    const Status status{client.owner(),
                        processOf(client.connection(), client.owner(), client.deadline()),
                        client.sticks().size(), jobInThisLife(client)};
    options.json ? printJson(status) : printText(status);
}

}  // namespace transferctl
