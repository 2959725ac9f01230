// Turning the process into a daemon, and the handshake by which its launcher learns that it is
// ready.
//
// Launcher and daemon meet in a System V semaphore set of two: semaphore 0 carries the daemon's
// "ready or done" to the launcher, semaphore 1 the launcher's acknowledgement back. Every operation
// carries SEM_UNDO, so that the kernel takes back what a process did when it ends. All functions
// run on the start-up or main-loop thread; a failure of the set ends the process with status 1.
#pragma once

#include <sys/sem.h>

// Single operations on the set.
inline constexpr struct sembuf kTake0 { 0, -1, SEM_UNDO };
inline constexpr struct sembuf kGive0 { 0, +1, SEM_UNDO };
inline constexpr struct sembuf kTake1 { 1, -1, SEM_UNDO };
inline constexpr struct sembuf kGive1 { 1, +1, SEM_UNDO };

// Returns the id of the start-up set, an existing one or a new one of `nsems` semaphores.
int createSemaphore(int nsems);

// Does one operation on set `id`, waiting as long as it takes.
void semaphoreOp(int id, struct sembuf op);

// Returns in the detached daemon, with the id of the start-up set. Does not return in the launcher,
// which ends with status 0 once the daemon has signalled, or with 1 when the daemon ended before it
// did.
int daemonize();

// The daemon's side of the handshake, in two halves: signalStarter tells the launcher that the
// daemon is ready or done and waits for the acknowledgement; endHandshake then removes the set.
void signalStarter(int id);
void endHandshake(int id);

// Completes the handshake for a daemon that cannot run and ends the process with status 2.
[[noreturn]] void releaseStarterAndExit(int id);
