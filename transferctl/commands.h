// The commands of transferctl.
#pragma once

#include "transferctl/options.h"

namespace transferctl {

// Each prints its result and returns when the command is done; otherwise it throws Failure.
void showStatus(const Options& options);
void listSticks(const Options& options);
void listDirectory(const Options& options);
void listBackups(const Options& options);
void listUpdates(const Options& options);
void makeDirectory(const Options& options);
void removeFile(const Options& options);
void proposeName(const Options& options);
void startBackup(const Options& options);
void startRestore(const Options& options);
void startUpdate(const Options& options);
void watchService(const Options& options);

// For the shell's completion: `KIND WORD` prints, one a line and as they are, the beginnings of
// places that WORD may become. KIND is any, directory, backup or update. Prints nothing where it
// cannot tell.
void printCandidates(const Options& options);

}  // namespace transferctl
