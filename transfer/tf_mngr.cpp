// The manager's construction and end, the transfer script, the applet change, the launch of jobs.
#include "transfer/tf_mngr.h"

#include <pthread.h>
#include <syslog.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "service/exit_status.h"
#include "service/service_log.h"

namespace {

constexpr const char* kTouchEnabledFile = "touch /tmp/transfer.enabled";
constexpr const char* kScriptStart =
    "/bin/sh /etc/morvane/transfer/transfer.sh TF_STATE_SNC_START true true";
// Kept: the leading blank.
constexpr const char* kScriptStop =
    " /bin/sh /etc/morvane/transfer/transfer.sh TF_STATE_SNC_STOP true true";

constexpr unsigned kLaunchSeconds = 1;

// The applets during which the service goes on.
bool isIgnoredApplet(std::int32_t id) {
    return id == 1 || id == 257 || id == 258 || id == 259 || id == 262;
}

}  // namespace

TfMngr::TfMngr() {
    announceStart();
}

TfMngr::~TfMngr() {
    [[maybe_unused]] const int status = std::system(kScriptStop);
}

int TfMngr::announceStart() {
    [[maybe_unused]] const int status = std::system(kTouchEnabledFile);
    return std::system(kScriptStart);
}

void TfMngr::appletHasChanged(std::int32_t id) {
    serviceLog(LOG_INFO, log_tag::kInfo, "appletHasChanged() Signal received with ID %d", id);
    if (isIgnoredApplet(id)) {
        return;
    }
    serviceLog(LOG_INFO, log_tag::kInfo, "Quitting com-morvane-transfer-service");
    // Kept: with the target -1 the signal reaches every process that this one may signal, and
    // exit() does not run the stop command.
    kill(quitSignalTarget_, SIGTERM);
    std::exit(kExitDone);
}

JobResult TfMngr::launchWorker(Worker worker) {
    pthread_t thread{};  // Kept: neither joined nor detached
    const int failure = pthread_create(&thread, nullptr, worker, this);
    // Kept: the only ordering between this job's worker and the storing of the next one. Without a
    // thread the job stays stored.
    sleep(kLaunchSeconds);
    return failure == 0 ? JobResult::Started : JobResult::NoThread;
}

TfMngr::Job TfMngr::copyJob() const {
    return {jobBackupType_, jobMountId_, jobFile_, updateFile_};
}
