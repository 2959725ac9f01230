// Turning the process into a daemon, and the handshake by which its launcher learns that it is
// ready.
//
// Launcher and daemon share a System V semaphore set of two: the daemon gives "ready", which it
// also does when it cannot run, and the launcher gives "acknowledged". Every operation carries
// SEM_UNDO, so that the kernel takes back what a process did when it ends. All functions run on the
// start-up or main-loop thread; a failure of the set ends the process with status 1.
#pragma once

#include <sys/sem.h>

// Single operations on the set: semaphore 0 says "ready", semaphore 1 "acknowledged".
inline constexpr struct sembuf kTakeReady { 0, -1, SEM_UNDO };
inline constexpr struct sembuf kGiveReady { 0, +1, SEM_UNDO };
inline constexpr struct sembuf kTakeAcknowledged { 1, -1, SEM_UNDO };
inline constexpr struct sembuf kGiveAcknowledged { 1, +1, SEM_UNDO };

// Returns the id of the start-up set, an existing one or a new one of `nsems` semaphores. Sets the
// umask to 0 when it creates one.
int createSemaphore(int nsems);

// Does one operation on set `id`, waiting as long as it takes.
void semaphoreOp(int id, struct sembuf op);

// Returns in the detached daemon, with the id of the start-up set. The daemon has a session of its
// own, umask 0, the directory "/" and /dev/null as its standard streams. Does not return in the
// launcher, which ends with status 0 once the daemon has signalled, or with 1 when the daemon ended
// before it did.
int daemonize();

// The daemon's side of the handshake, in two halves: signalLauncher tells the launcher that the
// daemon is ready or done and waits for the acknowledgement; endHandshake then removes the set.
void signalLauncher(int id);
void endHandshake(int id);

// Completes the handshake for a daemon that cannot run and ends the process with status 2.
[[noreturn]] void releaseStarterAndExit(int id);
