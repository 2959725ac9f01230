// The single-instance guard: a write-locked file that holds the process id.
#pragma once

#include <string>

// Locks "/var/lock/<name>.pid" for this process and writes the process id and a line end into it.
// Returns the open descriptor; the lock lasts until the process ends, or closes any descriptor of
// the file, so the caller keeps it and never opens the file again. Returns -1 when the file cannot
// be made or another process holds the lock, after reporting the reason with perror. Start-up
// thread only.
int lockPidFile(const std::string& name);
