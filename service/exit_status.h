// The statuses with which the process ends.
#pragma once

enum ExitStatus : int {
    kExitDone = 0,  // the launcher after the handshake, and the end at an applet change
    kExitStartFailed = 1,  // a step of daemonizing, or an operation on the start-up set
    kExitCannotServe = 2,  // no name or a lost one, or a daemon found the PID file locked
    kExitNothingRegistered = 3,
    kExitAlreadyRunning = -1,  // 255 to the caller: the PID file is locked
};
