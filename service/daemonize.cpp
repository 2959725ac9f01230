// The launcher and its daemon, on both sides of the fork.
#include "service/daemonize.h"

#include <sys/ipc.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "service/exit_status.h"
#include "service/service_log.h"

namespace {

constexpr key_t kStartSemaphoreKey = 123452;
constexpr struct timespec kLookAtDaemonEvery { 0, 100'000'000 };
constexpr int kStatusUnknown = W_EXITCODE(1, 0);  // of a daemon that somebody else has reaped

// What semctl takes as its last argument; no header of the system declares it.
union semun {
    int val;
    struct semid_ds* buf;
    unsigned short* array;
};

void removeSet(int id) {
    semctl(id, 1, IPC_RMID, 0);
}

bool setValue(int id, int semaphore, int value) {
    union semun argument {};
    argument.val = value;
    return semctl(id, semaphore, SETVAL, argument) >= 0;
}

[[noreturn]] void failSemaphoreOperation() {
    constexpr char kMessage[] = "Error during semaphore operation!";
    std::fwrite(kMessage, 1, sizeof kMessage - 1, stderr);
    std::exit(kExitStartFailed);
}

[[noreturn]] void exitLauncher() {
    serviceLog(LOG_INFO, log_tag::kInfo, "Exiting parent process");
    std::exit(kExitDone);
}

// The daemon ended without the handshake. One that was itself a launcher (a second -d) has done its
// work when its status is 0; any other will never signal.
[[noreturn]] void exitForEndedDaemon(int id, int waitStatus) {
    if (WIFEXITED(waitStatus) && WEXITSTATUS(waitStatus) == 0) {
        exitLauncher();
    }
    std::fputs("The service ended before it was ready.\n", stderr);
    removeSet(id);
    std::exit(kExitStartFailed);
}

// Takes semaphore 0 in bounded slices and looks at the daemon in between, so that a daemon that
// ends early does not leave its launcher waiting for ever.
void awaitDaemon(int id, pid_t daemon) {
    struct sembuf take = kTakeReady;
    while (semtimedop(id, &take, 1, &kLookAtDaemonEvery) == -1) {
        const int error = errno;  // waitpid may change it
        int waitStatus = kStatusUnknown;
        // No child is left either when the launcher was started with SIGCHLD ignored.
        const pid_t ended = waitpid(daemon, &waitStatus, WNOHANG);
        if (ended == daemon || (ended == -1 && errno == ECHILD)) {
            exitForEndedDaemon(id, waitStatus);
        }
        if (error != EAGAIN && error != EINTR) {
            failSemaphoreOperation();
        }
    }
}

// Without /dev/null there is nowhere left to report a failure to.
void toNowhere(const char* mode, FILE* stream) {
    [[maybe_unused]] const FILE* const reopened = std::freopen("/dev/null", mode, stream);
}

// Leaves the launcher's session, directory and standard streams. Kept: whatever standard output
// still holds unflushed is written to the old stream first, by the launcher and here.
void detach() {
    umask(0);
    if (setsid() < 0) {
        std::exit(kExitStartFailed);
    }
    if (chdir("/") < 0) {
        std::exit(kExitStartFailed);
    }
    toNowhere("r", stdin);
    toNowhere("w", stdout);
    toNowhere("w", stderr);
}

}  // namespace

int createSemaphore(int nsems) {
    const int existing = semget(kStartSemaphoreKey, 0, 0);
    if (existing >= 0) {
        return existing;
    }
    umask(0);
    const int id = semget(kStartSemaphoreKey, nsems, IPC_CREAT | IPC_EXCL | 0666);
    if (id < 0) {
        perror("Error while creating semaphore.");
        std::exit(kExitStartFailed);
    }
    std::printf("Semaphor created ID: %d\n", id);
    return id;
}

void semaphoreOp(int id, struct sembuf op) {
    if (semop(id, &op, 1) == -1) {
        failSemaphoreOperation();
    }
}

int daemonize() {
    serviceLog(LOG_INFO, log_tag::kInfo, "DBus service will be started as daemon");
    // Kept: a set that exists is reset, whether an earlier start left it or another is using it.
    const int id = createSemaphore(2);
    if (!setValue(id, 1, 1) || !setValue(id, 0, 1)) {
        perror("semctl didn't work.\n");
        removeSet(id);
        std::exit(kExitStartFailed);
    }
    semaphoreOp(id, kTakeReady);
    semaphoreOp(id, kTakeAcknowledged);

    const pid_t daemon = fork();
    if (daemon < 0) {
        // Kept: the set stays.
        perror("Error creating the child process\n");
        std::exit(kExitStartFailed);
    }
    if (daemon > 0) {
        awaitDaemon(id, daemon);
        semaphoreOp(id, kGiveReady);
        semaphoreOp(id, kGiveAcknowledged);
        // Kept: the status does not say whether the daemon serves or had to give up.
        exitLauncher();
    }
    detach();
    return id;
}

void signalLauncher(int id) {
    semaphoreOp(id, kGiveReady);
    semaphoreOp(id, kTakeAcknowledged);
}

void endHandshake(int id) {
    semaphoreOp(id, kGiveAcknowledged);
    removeSet(id);
}

void releaseStarterAndExit(int id) {
    signalLauncher(id);
    endHandshake(id);
    std::exit(kExitCannotServe);
}
